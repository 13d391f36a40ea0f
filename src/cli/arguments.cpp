#include "cli/arguments.h"

#include <QStringBuilder>

namespace cli {

namespace {

const QString Tool = QStringLiteral("parcelwise");

const OptionDef *findOption(const CommandDef &def, const QString &name)
{
    for (const OptionDef &o : def.options) {
        if (o.name == name || (!o.shortName.isEmpty() && o.shortName == name))
            return &o;
    }
    return nullptr;
}

QString tryHelp(const QString &command)
{
    return QStringLiteral("Try '") + Tool + (command.isEmpty() ? QString() : QStringLiteral(" ") + command)
        + QStringLiteral(" --help' for more information.");
}

QString formatOptions(const QList<OptionDef> &options)
{
    QStringList left;
    int width = 0;
    for (const OptionDef &o : options) {
        QString text = o.shortName.isEmpty() ? QStringLiteral("    ") : o.shortName + QStringLiteral(", ");
        text += o.name;
        if (!o.valueName.isEmpty())
            text += QLatin1Char(' ') + o.valueName;
        left << text;
        width = qMax(width, int(text.size()));
    }
    QString result;
    for (int i = 0; i < options.size(); ++i) {
        const QStringList helpLines = options[i].help.split(QLatin1Char('\n'));
        result += QStringLiteral("  ") + left[i].leftJustified(width) + QStringLiteral("  ") + helpLines.first()
            + QLatin1Char('\n');
        for (qsizetype line = 1; line < helpLines.size(); ++line)
            result += QString(width + 4, QLatin1Char(' ')) + helpLines[line] + QLatin1Char('\n');
    }
    return result;
}

} // namespace

namespace {

// Qt's own options for a window, and whether each takes a value.
bool isWindowOption(const QString &arg, bool *takesValue)
{
    static const QStringList withValue = {
        QStringLiteral("-platform"), QStringLiteral("-platformpluginpath"), QStringLiteral("-platformtheme"),
        QStringLiteral("-plugin"), QStringLiteral("-qwindowgeometry"), QStringLiteral("-qwindowicon"),
        QStringLiteral("-qwindowtitle"), QStringLiteral("-session"), QStringLiteral("-style"),
        QStringLiteral("-stylesheet"), QStringLiteral("-display"), QStringLiteral("-geometry"),
        QStringLiteral("-title"), QStringLiteral("-name"), QStringLiteral("-fontengine"), QStringLiteral("-im"),
        QStringLiteral("--server")};
    static const QStringList plain = {QStringLiteral("-reverse"), QStringLiteral("-widgetcount"),
                                      QStringLiteral("-nograb"), QStringLiteral("-dograb"), QStringLiteral("-sync")};
    const QString name = arg.section(QLatin1Char('='), 0, 0);
    *takesValue = !arg.contains(QLatin1Char('=')) && withValue.contains(arg);
    return withValue.contains(name) || plain.contains(arg) || arg.startsWith(QLatin1String("-qmljsdebugger="));
}

} // namespace

bool looksLikeCommandLine(const QStringList &args)
{
    for (qsizetype i = 0; i < args.size(); ++i) {
        bool takesValue = false;
        // A window option without its value is a usage error, told as the command line tells it.
        if (!isWindowOption(args[i], &takesValue) || (takesValue && i + 1 >= args.size()))
            return true;
        i += takesValue ? 1 : 0;
    }
    return false;
}

namespace {

// One pass over the arguments: the command word, its positional, its options and their values.
class ArgumentParser {
public:
    explicit ArgumentParser(const QStringList &args) : m_args(args) {}
    ParseResult run();

private:
    enum class Step { On, Done }; // Done: the result stands as it is
    Step word(qsizetype i);
    Step option(qsizetype &i);
    Step fail(const QString &message)
    {
        m_result.error = message + QLatin1Char('\n') + tryHelp(m_result.parsed.command);
        return Step::Done;
    }

    const QStringList &m_args;
    ParseResult m_result;
    Parsed &p = m_result.parsed;
    const CommandDef *m_def = &toolSpec();
};

ArgumentParser::Step ArgumentParser::word(qsizetype i)
{
    const QString &arg = m_args[i];
    if (p.command.isEmpty() && m_def == &toolSpec()) {
        if (arg == QLatin1String("help")) {
            // "parcelwise help export" reads as "parcelwise export --help".
            p.help = true;
            if (i + 1 < m_args.size()) {
                const CommandDef *named = findCommand(m_args[i + 1]);
                if (!named)
                    return fail(QStringLiteral("unknown command '") + m_args[i + 1] + QLatin1Char('\''));
                p.command = named->name;
            }
            return Step::Done;
        }
        m_def = findCommand(arg);
        if (!m_def)
            return fail(QStringLiteral("unknown command '") + arg + QLatin1Char('\''));
        p.command = arg;
        return Step::On;
    }
    if (m_def->positionalName.isEmpty() || !p.positionals.isEmpty())
        return fail(QStringLiteral("unexpected argument '") + arg + QLatin1Char('\''));
    p.positionals << arg;
    return Step::On;
}

ArgumentParser::Step ArgumentParser::option(qsizetype &i)
{
    const QString &arg = m_args[i];
    QString name = arg;
    QString inlineValue;
    bool hasInlineValue = false;
    const qsizetype equals = arg.indexOf(QLatin1Char('='));
    if (arg.startsWith(QLatin1String("--")) && equals > 0) {
        name = arg.left(equals);
        inlineValue = arg.mid(equals + 1);
        hasInlineValue = true;
    } else if (!arg.startsWith(QLatin1String("--")) && arg.size() > 2) {
        // "-j4": a short option and its value in one word.
        const OptionDef *o = findOption(*m_def, arg.left(2));
        if (o && !o->valueName.isEmpty()) {
            name = arg.left(2);
            inlineValue = arg.mid(2);
            hasInlineValue = true;
        }
    }
    if (name == QLatin1String("--password") || name == QLatin1String("-p"))
        return fail(QStringLiteral("a password is never taken from the command line; use --password-stdin, "
                                   "--password-file FILE or the environment variable PARCELWISE_PASSWORD"));
    const OptionDef *o = findOption(*m_def, name);
    if (!o)
        return fail(QStringLiteral("unknown option '") + name + QLatin1Char('\''));
    if (o->name == QLatin1String("--help") || o->name == QLatin1String("--version")) {
        (o->name == QLatin1String("--help") ? p.help : p.version) = true;
        return Step::On;
    }
    if (o->valueName.isEmpty()) {
        if (hasInlineValue)
            return fail(QStringLiteral("option '") + o->name + QStringLiteral("' takes no value"));
        if (!p.switches.contains(o->name))
            p.switches << o->name;
        return Step::On;
    }
    if (!hasInlineValue && i + 1 >= m_args.size())
        return fail(QStringLiteral("option '") + o->name + QStringLiteral("' needs a value (") + o->valueName
                    + QLatin1Char(')'));
    const QString value = hasInlineValue ? inlineValue : m_args[++i];
    if (!o->repeatable && p.values.contains(o->name))
        return fail(QStringLiteral("option '") + o->name + QStringLiteral("' given more than once"));
    p.values[o->name] << value;
    return Step::On;
}

ParseResult ArgumentParser::run()
{
    bool optionsEnded = false;
    for (qsizetype i = 0; i < m_args.size(); ++i) {
        const QString &arg = m_args[i];
        const bool isOption = !optionsEnded && arg.startsWith(QLatin1Char('-')) && arg != QLatin1String("-");
        if (isOption && arg == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        if ((isOption ? option(i) : word(i)) == Step::Done)
            return m_result;
    }
    if (p.help || p.version)
        return m_result;
    if (!p.command.isEmpty() && !m_def->positionalName.isEmpty() && p.positionals.isEmpty())
        fail(QStringLiteral("missing ") + m_def->positionalName);
    return m_result;
}

} // namespace

ParseResult parseArguments(const QStringList &args)
{
    return ArgumentParser(args).run();
}

QString helpText(const CommandDef &def)
{
    QString text;
    if (def.name.isEmpty()) {
        text += QStringLiteral("Usage: parcelwise ") + def.synopsis + QLatin1Char('\n');
        text += QStringLiteral("       parcelwise [--server NAME] (no command: open the window, the server box filled)\n\n");
        text += def.description + QStringLiteral("\n\nCommands:\n");
        int width = 0;
        for (const CommandDef &c : commands())
            width = qMax(width, int(c.name.size()));
        for (const CommandDef &c : commands())
            text += QStringLiteral("  ") + c.name.leftJustified(width) + QStringLiteral("  ") + c.summary + QLatin1Char('\n');
        text += QStringLiteral("\nOptions:\n") + formatOptions(def.options);
    } else {
        text += QStringLiteral("Usage: parcelwise ") + def.synopsis + QStringLiteral("\n\n");
        text += def.description + QStringLiteral("\n\n");
        if (!def.positionalName.isEmpty())
            text += QStringLiteral("Arguments:\n  ") + def.positionalName
                + QStringLiteral("  Directory to write into (created when missing)\n\n");
        text += QStringLiteral("Options:\n") + formatOptions(def.options);
    }
    if (def.name != QLatin1String("demo")) {
        text += QStringLiteral(
            "\nPassword:\n"
            "  Give it on standard input with --password-stdin (one line, its line end removed), as\n"
            "  the first line of a file with --password-file FILE, or in the environment variable\n"
            "  PARCELWISE_PASSWORD. It is never accepted as an argument.\n"
            "  No password at all signs in with an empty one.\n");
    }
    text += QStringLiteral("\nEnvironment:\n");
    if (def.name != QLatin1String("demo"))
        text += QStringLiteral("  PARCELWISE_PASSWORD   password, when neither --password-stdin nor --password-file is given\n");
    text += QStringLiteral("  PARCELWISE_TRACE_SQL  file to append the SQL statements to, as --trace-sql does\n");
    text += QStringLiteral("\nExit status:\n") + def.exitStatus;
    text += QStringLiteral("\nExamples:\n");
    for (const QString &example : def.examples)
        text += QStringLiteral("  ") + example + QLatin1Char('\n');
    if (def.name.isEmpty())
        text += QStringLiteral("\nRun 'parcelwise <command> --help' for the options of a command.\n");
    return text;
}

QString usageText()
{
    const QString help = helpText(toolSpec());
    return help.left(help.indexOf(QStringLiteral("\nOptions:\n")) + 1);
}

QString versionText()
{
    return QStringLiteral("parcelwise %1.%2.%3\n")
        .arg(PARCELWISE_VERSION_MAJOR)
        .arg(PARCELWISE_VERSION_MINOR)
        .arg(PARCELWISE_VERSION_PATCH);
}

} // namespace cli
