#pragma once
// The command line's grammar: commands, their options, and the help texts built from them.

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace cli {

struct OptionDef {
    QString name;      // "--dest"
    QString shortName; // "-h" or ""
    QString valueName; // "DIR"; "" for a switch
    QString help;
    bool repeatable = false;
};

struct CommandDef {
    QString name;        // "" for the tool itself
    QString synopsis;    // usage line after "parcelwise"
    QString summary;     // one line, for the command list
    QString description; // paragraphs
    QString positionalName; // "DIR" when the command takes one positional argument
    QList<OptionDef> options;
    QStringList examples;
    QString exitStatus; // the table's lines, only the statuses this command can end with
};

const QList<CommandDef> &commands();
const CommandDef *findCommand(const QString &name);
const CommandDef &toolSpec();

struct Parsed {
    QString command;                  // "" when none was given
    QMap<QString, QStringList> values; // option name -> values in the order given
    QStringList switches;
    QStringList positionals;
    bool help = false;
    bool version = false;

    bool has(const QString &option) const { return switches.contains(option) || values.contains(option); }
    QString value(const QString &option) const { return values.value(option).value(0); }
};

struct ParseResult {
    Parsed parsed;
    QString error; // "" when the arguments are well formed
};

// args without the program name.
ParseResult parseArguments(const QStringList &args);

// True unless the arguments are only the window's own (none, --server NAME, Qt's -platform and
// the like): then they mean the window.
bool looksLikeCommandLine(const QStringList &args);

QString helpText(const CommandDef &def);
// The usage lines and the command list, for a usage error without a command.
QString usageText();
QString versionText();

} // namespace cli
