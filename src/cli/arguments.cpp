#include "cli/arguments.h"

#include <QStringBuilder>

namespace cli {

namespace {

const QString Tool = QStringLiteral("parcelwise");

OptionDef option(const char *name, const char *valueName, const char *help, bool repeatable = false)
{
    OptionDef o;
    o.name = QString::fromLatin1(name);
    o.valueName = QString::fromLatin1(valueName);
    o.help = QString::fromLatin1(help);
    o.repeatable = repeatable;
    return o;
}

OptionDef helpOption()
{
    OptionDef o = option("--help", "", "Show this help and exit");
    o.shortName = QStringLiteral("-h");
    return o;
}

OptionDef traceOption()
{
    return option("--trace-sql", "FILE", "Append every SQL statement sent, one per line, to FILE");
}

OptionDef jsonOption(const char *help)
{
    return option("--json", "", help);
}

QList<OptionDef> signInOptions()
{
    return {
        option("--server", "NAME", "SQL Server to sign in to (or the folder of an embedded server)"),
        option("--user", "NAME", "SQL Server user name"),
        option("--password-stdin", "", "Read the password from the first line of standard input"),
    };
}

CommandDef databasesCommand()
{
    CommandDef databases;
    databases.name = QStringLiteral("databases");
    databases.synopsis = QStringLiteral("databases --server NAME --user NAME [--json] [--password-stdin]");
    databases.summary = QStringLiteral("List the catalogue's company databases with their type");
    databases.description = QStringLiteral(
        "Signs in to the server's master catalogue and lists every company database it records,\n"
        "in catalogue order, with its type (Live or Archive) and, for an archive database, the\n"
        "live database it is paired with.");
    databases.options = signInOptions();
    databases.options << jsonOption(
        "Print a JSON list of objects (name, type, live) instead of the table")
                      << traceOption() << helpOption();
    databases.examples = {
        QStringLiteral("parcelwise databases --server sql01 --user exporter --password-stdin < ~/.parcelwise-password"),
        QStringLiteral("parcelwise databases --server ./demo-repository --user demo"),
    };
    return databases;
}

CommandDef treeCommand()
{
    CommandDef tree;
    tree.name = QStringLiteral("tree");
    tree.synopsis = QStringLiteral("tree --server NAME --user NAME --database NAME [--depth N] [--json] [--password-stdin]");
    tree.summary = QStringLiteral("Show a database's folder tree with folder ids");
    tree.description = QStringLiteral(
        "Opens the database as the window does and prints its folder tree as the window shows it\n"
        "after clicking down N levels below the root: one folder per line, its id first, then its\n"
        "name indented by its depth. An archive database shows only the folders that hold\n"
        "archived documents, in them or below them.");
    tree.options = signInOptions();
    tree.options << option("--database", "NAME", "Company database to open (live or archive)")
                 << option("--depth", "N", "Levels to show below the root folder (default 1; 0 shows the root only)")
                 << jsonOption("Print a JSON list of the folders in tree order (id, name, text, depth,\n"
                               "parentId, lifecycle, childrenLoaded, children) instead of the lines")
                 << traceOption() << helpOption();
    tree.examples = {
        QStringLiteral("parcelwise tree --server sql01 --user exporter --database Acme --depth 2 --password-stdin < ~/.parcelwise-password"),
        QStringLiteral("parcelwise tree --server ./demo-repository --user demo --database AcmeArchive --depth 3"),
    };
    return tree;
}

CommandDef exportCommand()
{
    CommandDef exportCommand;
    exportCommand.name = QStringLiteral("export");
    exportCommand.synopsis = QStringLiteral(
        "export --server NAME --user NAME --database NAME (--folder PATH ... | --all) --dest DIR\n"
        "                         [--jobs N] [--dry-run] [--update] [--report FILE] [--log-dir DIR]\n"
        "                         [--progress | --no-progress] [--password-stdin]");
    exportCommand.summary = QStringLiteral("Export folders and their documents to a directory");
    exportCommand.description = QStringLiteral(
        "Ticks folders as a user would in the window and runs the copy: every ticked folder\n"
        "becomes a directory under DIR (an existing one of that name is deleted first), every\n"
        "document a file under its cleaned title, dated from the repository. A PATH is a chain of\n"
        "folder names below the root separated by \"/\"; its ancestors are clicked open and the\n"
        "folder itself is ticked, so its whole subtree is exported. Folders are ticked in the\n"
        "order given. A name that itself holds \"/\" is matched whole (\"Q1: Plans/Drafts\").\n"
        "--all ticks every folder directly below the root.\n"
        "\n"
        "Items that cannot be written are listed in the export log (in the Documents folder, or\n"
        "in --log-dir) and make the exit status 1. A progress line is shown on stderr when it is\n"
        "a terminal; a summary line is printed at the end in any case.\n"
        "\n"
        "Documents are streamed from the database to their files a megabyte at a time, never held\n"
        "whole. --jobs N fetches and writes N documents at once, each on a connection of its own\n"
        "(worth it when every round trip to the server costs time); the folders are still walked\n"
        "one by one, so the files, their names and the log are the same for every N.\n"
        "\n"
        "Every document is written under a temporary name beside its file, dated, and renamed into\n"
        "place when complete: a run that is stopped leaves no partial file under a document's name.\n"
        "--report writes one JSON line per folder and per document as the run goes (path, bytes,\n"
        "SHA-256, date, status), for 'parcelwise verify'. --update finishes or refreshes an earlier\n"
        "export into the same DIR: existing directories are kept, a document whose file is there\n"
        "with its size and date is left alone, everything else is written.");
    exportCommand.options = signInOptions();
    exportCommand.options << option("--database", "NAME", "Company database to export from (live or archive)")
                          << option("--folder", "PATH", "Folder to export, e.g. \"Projects/2016\"; may be repeated", true)
                          << option("--all", "", "Export every folder directly below the root")
                          << option("--dest", "DIR", "Directory that receives the folders (created with its parents when missing)")
                          << option("--jobs", "N", "Documents fetched and written at once, each on its own\nconnection (1 to 64; default 1)")
                          << option("--dry-run", "", "Write nothing; list the directories and files it would write\nand the existing directories it would delete")
                          << option("--update", "", "Keep existing directories and leave documents whose file has\n"
                                                    "their size and date; with --dry-run, also list files the\n"
                                                    "repository no longer holds")
                          << option("--report", "FILE", "Write a JSON Lines record of every folder and document to FILE\n"
                                                        "(with --update, digests of unchanged files carry over from FILE)")
                          << option("--log-dir", "DIR", "Directory for the export log (default: your Documents folder;\ncreated with its parents when missing)")
                          << option("--progress", "", "Show the progress line even when stderr is not a terminal")
                          << option("--no-progress", "", "Never show the progress line")
                          << traceOption() << helpOption();
    exportCommand.examples = {
        QStringLiteral("parcelwise export --server sql01 --user exporter --database Acme \\\n"
                       "      --folder \"Projects/2016\" --folder Contracts --dest /srv/export --password-stdin < ~/.parcelwise-password"),
        QStringLiteral("read -rs PARCELWISE_PASSWORD && export PARCELWISE_PASSWORD\n"
                       "    parcelwise export --server sql01 --user exporter --database AcmeArchive --all --dest /srv/archive --dry-run"),
        QStringLiteral("parcelwise export --server ./demo-repository --user demo --database Acme --all --dest ./out --log-dir ./out"),
    };
    return exportCommand;
}

CommandDef verifyCommand()
{
    CommandDef verify;
    verify.name = QStringLiteral("verify");
    verify.synopsis = QStringLiteral(
        "verify --report FILE --dest DIR [--extra] [--server NAME --user NAME --database NAME]\n"
        "                         [--password-stdin] [--progress | --no-progress]");
    verify.summary = QStringLiteral("Prove an export: its files against its report and the repository");
    verify.description = QStringLiteral(
        "Reads every file the export report FILE lists below DIR and compares it with its record:\n"
        "that it is there, its size, its SHA-256 and its date. Given a server, each document is\n"
        "also read again from the repository, with the statements the export sends, and compared\n"
        "with the file. Every mismatch is printed on stdout with its path and what differs\n"
        "(missing, size, content, date); a summary follows on stderr. A report with no records, or\n"
        "with a line that is not a record as the export writes it, is a mismatch too.");
    verify.options << option("--report", "FILE", "Export report written by 'parcelwise export --report';\n"
                                                 "read as a stream: a pipe, or - for standard input")
                   << option("--dest", "DIR", "Directory the export wrote into")
                   << option("--extra", "", "Also list what is in DIR that no record names, as mismatches");
    verify.options << signInOptions();
    verify.options << option("--database", "NAME", "Company database the export read (with --server)")
                   << option("--progress", "", "Show the progress line even when stderr is not a terminal")
                   << option("--no-progress", "", "Never show the progress line")
                   << traceOption() << helpOption();
    verify.examples = {
        QStringLiteral("parcelwise verify --report export.jsonl --dest /srv/export"),
        QStringLiteral("parcelwise verify --report export.jsonl --dest /srv/export \\\n"
                       "      --server sql01 --user exporter --database Acme --password-stdin < ~/.parcelwise-password"),
    };
    return verify;
}

CommandDef demoCommand()
{
    CommandDef demoCommand;
    demoCommand.name = QStringLiteral("demo");
    demoCommand.synopsis = QStringLiteral("demo DIR");
    demoCommand.summary = QStringLiteral("Write the demo repository into a directory");
    demoCommand.description = QStringLiteral(
        "Writes a small repository for the embedded server into DIR: a master catalogue, a live\n"
        "company database and its archive. Use DIR as the server name to try the other commands.");
    demoCommand.positionalName = QStringLiteral("DIR");
    demoCommand.options << traceOption() << helpOption();
    demoCommand.examples = {
        QStringLiteral("parcelwise demo ./demo-repository"),
        QStringLiteral("parcelwise databases --server ./demo-repository --user demo"),
    };
    return demoCommand;
}

QList<CommandDef> buildCommands()
{
    return {databasesCommand(), treeCommand(), exportCommand(), verifyCommand(), demoCommand()};
}

CommandDef buildTool()
{
    CommandDef tool;
    tool.synopsis = QStringLiteral("<command> [options]");
    tool.description = QStringLiteral(
        "Exports folders and documents from a document repository held in SQL Server onto disk.\n"
        "Without a command the window opens; with a command the tool runs without a display.");
    tool.options << traceOption() << helpOption()
                 << option("--version", "", "Show the version and exit");
    tool.examples = {
        QStringLiteral("parcelwise demo ./demo-repository"),
        QStringLiteral("parcelwise tree --server ./demo-repository --user demo --database Acme --depth 2"),
        QStringLiteral("parcelwise export --server sql01 --user exporter --database Acme --folder Projects \\\n"
                       "      --dest /srv/export --password-stdin < ~/.parcelwise-password"),
    };
    return tool;
}

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

const QList<CommandDef> &commands()
{
    static const QList<CommandDef> list = buildCommands();
    return list;
}

const CommandDef *findCommand(const QString &name)
{
    for (const CommandDef &c : commands()) {
        if (c.name == name)
            return &c;
    }
    return nullptr;
}

const CommandDef &toolSpec()
{
    static const CommandDef tool = buildTool();
    return tool;
}

bool looksLikeCommandLine(const QStringList &args)
{
    if (args.isEmpty())
        return false;
    const QString &first = args.first();
    // Anything else that starts with a dash belongs to the window (Qt's own -platform, -style...).
    if (!first.startsWith(QLatin1Char('-')))
        return !first.isEmpty();
    return first == QLatin1String("--help") || first == QLatin1String("-h") || first == QLatin1String("--version")
        || first == QLatin1String("--trace-sql") || first.startsWith(QLatin1String("--trace-sql="));
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
    }
    if (name == QLatin1String("--password") || name == QLatin1String("-p"))
        return fail(QStringLiteral("a password is never taken from the command line; use --password-stdin "
                                   "or the environment variable PARCELWISE_PASSWORD"));
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
            "  Give it on standard input with --password-stdin (one line, its line end removed), or\n"
            "  in the environment variable PARCELWISE_PASSWORD. It is never accepted as an argument.\n"
            "  No password at all signs in with an empty one.\n");
    }
    text += QStringLiteral(
        "\nEnvironment:\n"
        "  PARCELWISE_PASSWORD   password, when --password-stdin is not given\n"
        "  PARCELWISE_TRACE_SQL  file to append the SQL statements to, as --trace-sql does\n");
    if (def.name == QLatin1String("verify"))
        text += QStringLiteral(
            "\nExit status:\n"
            "  0  every file listed matches (and the repository, given a server)\n"
            "  1  some file or document does not match, or the report is not sound; each is printed\n"
            "  2  usage, report, sign-in or database error, or the output could not be written\n");
    else
        text += QStringLiteral(
            "\nExit status:\n"
            "  0  done (every item exported)\n"
            "  1  some items could not be exported; they are listed in the export log\n"
            "  2  usage, sign-in or database error\n");
    text += QStringLiteral("\nExamples:\n");
    for (const QString &example : def.examples)
        text += QStringLiteral("  ") + example + QLatin1Char('\n');
    if (def.name.isEmpty())
        text += QStringLiteral("\nRun 'parcelwise <command> --help' for the options of a command.\n");
    return text;
}

QString versionText()
{
    return QStringLiteral("parcelwise %1.%2.%3\n")
        .arg(PARCELWISE_VERSION_MAJOR)
        .arg(PARCELWISE_VERSION_MINOR)
        .arg(PARCELWISE_VERSION_PATCH);
}

} // namespace cli
