// The commands and their options: what each command takes and what its help says about it.

#include "cli/arguments.h"

namespace cli {

namespace {

OptionDef option(const char *name, const char *valueName, const char *help, bool repeatable = false)
{
    OptionDef o;
    o.name = QString::fromLatin1(name);
    o.valueName = QString::fromLatin1(valueName);
    o.help = QString::fromLatin1(help);
    o.repeatable = repeatable;
    return o;
}

OptionDef shortOption(const char *shortName, OptionDef o)
{
    o.shortName = QString::fromLatin1(shortName);
    return o;
}

OptionDef helpOption()
{
    return shortOption("-h", option("--help", "", "Show this help and exit"));
}

// Lines of the exit status table; each command lists only those it can end with.
const char *const kSignInExits =
    "  3  sign-in refused: login failed, or the database is not in the catalogue or not accessible\n"
    "  4  server unreachable: connection refused, unknown host, or no answer after the retries\n"
    "  5  not a repository: the database lacks the repository's tables or its statements fail\n";

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
        option("--password-file", "FILE", "Read the password from the first line of FILE"),
        option("--timeout", "S", "Seconds a SQL Server statement may go unanswered before it\n"
                                 "counts as a broken connection (default 600; 0: no limit)"),
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
    databases.exitStatus = QStringLiteral("  0  listed\n  2  usage error, or the output could not be written\n")
        + QLatin1String(kSignInExits);
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
    tree.exitStatus = QStringLiteral("  0  shown\n  2  usage error, or the output could not be written\n")
        + QLatin1String(kSignInExits);
    tree.examples = {
        QStringLiteral("parcelwise tree --server sql01 --user exporter --database Acme --depth 2 --password-stdin < ~/.parcelwise-password"),
        QStringLiteral("parcelwise tree --server ./demo-repository --user demo --database AcmeArchive --depth 3"),
    };
    return tree;
}

QList<OptionDef> exportOptions()
{
    QList<OptionDef> options = signInOptions();
    options << option("--database", "NAME", "Company database to export from (live or archive)")
            << option("--folder", "PATH", "Folder to export, e.g. \"Projects/2016\"; may be repeated", true)
            << option("--all", "", "Export every folder directly below the root")
            << option("--exclude", "PATTERN", "Leave out each folder, with its subtree, whose path below the root\n"
                                                            "matches PATTERN (* ? [..], letter case aside); may be repeated", true)
            << option("--since", "DATE", "Leave out documents dated before DATE (2016-01-31 or\n"
                                                       "2016-01-31T08:00): each is dated first, with a statement more")
            << option("--dest", "DIR", "Directory that receives the folders (created with its parents when missing)")
            << shortOption("-j", option("--jobs", "N", "Documents fetched and written at once, each on its own\nconnection (1 to 64; default 4; 1 sends every statement in turn)"))
            << option("--retries", "N", "Times a statement whose connection broke is tried again on a\n"
                                        "reopened connection (0 to 100; default 3)")
            << option("--retry-wait", "S", "Seconds before the first try again, doubled for each later one\n"
                                           "(default 1)")
            << shortOption("-n", option("--dry-run", "", "Write nothing; list the directories and files it would write\n"
                                                                       "and the existing directories it would delete or refuse"))
            << option("--replace", "", "Delete existing directories of the names the run writes and\nwrite them anew")
            << option("--update", "", "Keep existing directories and leave documents whose file has\n"
                                                    "their size and date; with --dry-run, also list files the\n"
                                                    "repository no longer holds")
            << option("--report", "FILE", "Write a JSON Lines record of every folder and document to FILE\n"
                                                        "(with --update, digests of unchanged files carry over from FILE)")
            << option("--log-dir", "DIR", "Directory for the export log (default: your Documents folder;\ncreated with its parents when missing)")
            << option("--progress", "", "Show the progress line even when stderr is not a terminal")
            << option("--no-progress", "", "Never show the progress line")
            << shortOption("-q", option("--quiet", "", "Show no progress line and no failed items as they happen"))
            << shortOption("-v", option("--verbose", "", "Print each directory and file on stdout as it is written"))
            << jsonOption("At the end, print one JSON object on stdout: folders, documents,\n"
                                        "bytes, failures, retries, connections, jobs, seconds, log,\nreport, exitStatus")
            << traceOption() << helpOption();
    return options;
}

CommandDef exportCommand()
{
    CommandDef exportCommand;
    exportCommand.name = QStringLiteral("export");
    exportCommand.synopsis = QStringLiteral(
        "export --server NAME --user NAME --database NAME (--folder PATH ... | --all) --dest DIR\n"
        "                         [--exclude PATTERN ...] [--since DATE]\n"
        "                         [-j N] [-n] [--replace | --update] [--report FILE] [--log-dir DIR] [--json]\n"
        "                         [--retries N] [--retry-wait S] [--timeout S]\n"
        "                         [--progress | --no-progress] [-q] [-v] [--password-stdin | --password-file FILE]");
    exportCommand.summary = QStringLiteral("Export folders and their documents to a directory");
    exportCommand.description = QStringLiteral(
        "Ticks folders as a user would in the window and runs the copy: every ticked folder\n"
        "becomes a directory under DIR, every document a file under its cleaned title, dated from\n"
        "the repository. A PATH is a chain of folder names below the root separated by \"/\"; its\n"
        "ancestors are clicked open and the folder itself is ticked, so its whole subtree is\n"
        "exported. Folders are ticked in the order given. A name that itself holds \"/\" is\n"
        "matched whole (\"Q1: Plans/Drafts\").\n"
        "--all ticks every folder directly below the root.\n"
        "\n"
        "--exclude and --since leave items out; each is in the report as skipped. --exclude's\n"
        "PATTERN is matched against a folder's path below the root, names as stored, \"/\" between\n"
        "them (\"*\" spans \"/\" too). --since takes a document's own date, else its upload date;\n"
        "it runs the date statement for each document before its bytes are read, so it costs a\n"
        "round trip per document. Documents without any date are exported.\n"
        "\n"
        "Before anything is written, the directories the run would make at the top of DIR are\n"
        "looked for: when any of them is already there (a directory, a file or a link), the run\n"
        "refuses, names them and touches nothing. --replace deletes each and writes it anew, with\n"
        "whatever was put there; --update keeps them. --dry-run refuses in the same way, so that\n"
        "it tells what the real run would do.\n"
        "\n"
        "Items that cannot be written are listed in the export log (in the Documents folder, or\n"
        "in --log-dir) and make the exit status 1; each is also named on stderr as it happens, its\n"
        "path below DIR and the reason, unless --quiet is given. A progress line is shown on stderr when it is\n"
        "a terminal (with --progress into a file or a pipe: one line every few seconds); a summary\n"
        "line is printed at the end in any case, and with --json one JSON object on stdout.\n"
        "\n"
        "Documents are streamed from the database to their files a megabyte at a time, never held\n"
        "whole. --jobs N fetches and writes N documents at once (default 4), each on a connection\n"
        "of its own, which hides most of the time every round trip to the server costs; the folders\n"
        "are still walked one by one, so the files, their names and the log are the same for\n"
        "every N. --jobs 1 sends every statement in turn on one connection. The summary says how\n"
        "many connections were used.\n"
        "\n"
        "A statement whose connection breaks (a dropped link, a server failing over, no answer\n"
        "within --timeout) is sent again on a freshly opened connection after 1, 2, 4, ... seconds\n"
        "(--retry-wait, --retries); a document whose bytes were coming is fetched again from its\n"
        "first byte. What still fails is logged. The summary says how many statements were\n"
        "retried; each document's record in the report carries its retries.\n"
        "\n"
        "Every document is written under a temporary name beside its file, dated, and renamed into\n"
        "place when complete: a run that is stopped leaves no partial file under a document's name.\n"
        "--report writes one JSON line per folder and per document as the run goes (path, bytes,\n"
        "SHA-256, date, status), for 'parcelwise verify'. --update finishes or refreshes an earlier\n"
        "export into the same DIR: existing directories are kept, a document whose file is there\n"
        "with its size and date is left alone, everything else is written. It reads the sizes and\n"
        "dates of a folder's documents with one statement, so an unchanged document costs none.");
    exportCommand.options = exportOptions();
    exportCommand.exitStatus = QStringLiteral(
        "  0  done: every item exported\n"
        "  1  some items could not be exported; they are listed in the export log\n"
        "  2  usage error, existing directories refused, or a local problem: the destination, the\n"
        "     log or the report cannot be used\n") + QLatin1String(kSignInExits)
        + QStringLiteral("  130, 143  stopped by SIGINT, SIGTERM: documents in flight abandoned, whole files kept;\n"
                         "     a second SIGINT ends at once\n");
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
        "                         [--password-stdin | --password-file FILE] [--progress | --no-progress] [--json]");
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
                   << jsonOption("At the end, print one JSON object on stdout: files, bytes,\n"
                                 "mismatches, seconds, report, exitStatus")
                   << traceOption() << helpOption();
    verify.exitStatus = QStringLiteral(
        "  0  every file listed matches (and the repository, given a server)\n"
        "  1  some file or document does not match, or the report is not sound; each is printed\n"
        "  2  usage error, the report cannot be read, or the output could not be written\n")
        + QLatin1String(kSignInExits);
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
    demoCommand.exitStatus = QStringLiteral("  0  written\n  2  usage error, or DIR cannot be written\n");
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
    tool.options << option("--server", "NAME", "Without a command: the window's server box filled with NAME")
                 << traceOption() << helpOption()
                 << option("--version", "", "Show the version and exit");
    tool.exitStatus = QStringLiteral(
        "  0  done\n"
        "  1  some items failed (export) or did not match (verify)\n"
        "  2  usage error or a local problem (arguments, destination, log, report; no display)\n")
        + QLatin1String(kSignInExits) + QStringLiteral("  130, 143  interrupted (SIGINT, SIGTERM)\n");
    tool.examples = {
        QStringLiteral("parcelwise demo ./demo-repository"),
        QStringLiteral("parcelwise tree --server ./demo-repository --user demo --database Acme --depth 2"),
        QStringLiteral("parcelwise export --server sql01 --user exporter --database Acme --folder Projects \\\n"
                       "      --dest /srv/export --password-stdin < ~/.parcelwise-password"),
    };
    return tool;
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

} // namespace cli
