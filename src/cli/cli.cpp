#include "cli/cli.h"

#include "cli/arguments.h"
#include "cli/clisession.h"
#include "cli/terminal.h"

#include "demo/demorepository.h"
#include "errors/hunterr.h"
#include "repository/connection.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <memory>

namespace cli {

namespace {

// --- demo ----------------------------------------------------------------------------------

int runDemo(const Parsed &p)
{
    const QString dir = p.positionals.value(0);
    if (dir.trimmed().isEmpty())
        return usageError(QStringLiteral("missing DIR"), p.command);
    QString error;
    if (!writeDemoRepository(dir, &error)) {
        printError(QStringLiteral("cannot write the demo repository into \"%1\": %2").arg(dir, error));
        return ExitError;
    }
    writeOut(QStringLiteral("Demo repository written to %1\n"
                            "Sign in with --server %2 --user demo (empty password), for example:\n"
                            "  parcelwise databases --server %2 --user demo\n"
                            "In the window (parcelwise --server %2) the tool password is brimex.\n")
                 .arg(absoluteNative(dir), QDir::toNativeSeparators(dir)));
    return ExitDone;
}

// --- display -------------------------------------------------------------------------------

bool hasDisplay(const QStringList &args)
{
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    QString platform = qEnvironmentVariable("QT_QPA_PLATFORM");
    for (qsizetype i = 0; i + 1 < args.size(); ++i)
        if (args[i] == QLatin1String("-platform"))
            platform = args[i + 1];
    const QString name = platform.section(QLatin1Char(':'), 0, 0).trimmed();
    const bool x11 = !qEnvironmentVariableIsEmpty("DISPLAY");
    const bool wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (name.isEmpty())
        return x11 || wayland;
    if (name == QLatin1String("xcb"))
        return x11;
    if (name.startsWith(QLatin1String("wayland")))
        return wayland;
    return true; // offscreen, minimal, vnc, eglfs, linuxfb...: no display server needed
#else
    Q_UNUSED(args);
    return true;
#endif
}

QStringList argumentList(int argc, char **argv)
{
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args << QString::fromLocal8Bit(argv[i]);
    return args;
}

// --- dispatch ------------------------------------------------------------------------------

int dispatch(const QStringList &args)
{
    const ParseResult result = parseArguments(args);
    if (!result.error.isEmpty()) {
        printError(result.error);
        return ExitError;
    }
    const Parsed &p = result.parsed;
    if (p.version) {
        writeOut(versionText());
        return ExitDone;
    }
    const CommandDef *def = p.command.isEmpty() ? &toolSpec() : findCommand(p.command);
    if (p.help) {
        writeOut(helpText(*def));
        return ExitDone;
    }
    if (p.command.isEmpty() && !hasDisplay(args)) {
        printError(QStringLiteral("no display: give a command"));
        writeErr(usageText());
        return ExitError;
    }
    if (p.command.isEmpty())
        return usageError(QStringLiteral("no command given"), QString());

    if (p.has(QStringLiteral("--trace-sql"))) {
        const QString trace = p.value(QStringLiteral("--trace-sql"));
        QFile probe(trace);
        if (trace.trimmed().isEmpty() || !probe.open(QIODevice::WriteOnly | QIODevice::Append)) {
            printError(QStringLiteral("cannot write the SQL trace to \"%1\": %2").arg(trace, probe.errorString()));
            return ExitError;
        }
        probe.close();
        repo::setTraceFile(QFileInfo(trace).absoluteFilePath());
    }

    int timeout = -1;
    int refused = ExitDone;
    if (!wholeNumberOption(p, QStringLiteral("--timeout"), "a whole number of seconds", 0, 86400, &timeout, &refused))
        return refused;
    if (timeout >= 0)
        repo::setStatementTimeout(timeout);

    installErrorShower(p.command);
    if (p.command == QLatin1String("databases"))
        return runDatabases(p);
    if (p.command == QLatin1String("tree"))
        return runTree(p);
    if (p.command == QLatin1String("export"))
        return runExport(p);
    if (p.command == QLatin1String("verify"))
        return runVerify(p);
    return runDemo(p);
}

} // namespace

bool isCommandLine(int argc, char **argv)
{
    return looksLikeCommandLine(argumentList(argc, argv));
}

bool displayAvailable(int argc, char **argv)
{
    return hasDisplay(argumentList(argc, argv));
}

int runCommandLine(int argc, char **argv)
{
    std::unique_ptr<QCoreApplication> app;
    if (!QCoreApplication::instance())
        app = std::make_unique<QCoreApplication>(argc, argv);
    // The window's names: both faces read the one installation settings file.
    QCoreApplication::setApplicationName(QStringLiteral("Parcelwise"));
    QCoreApplication::setOrganizationName(QStringLiteral("zarnivo"));
    QCoreApplication::setApplicationVersion(QStringLiteral("%1.%2.%3")
                                                .arg(PARCELWISE_VERSION_MAJOR)
                                                .arg(PARCELWISE_VERSION_MINOR)
                                                .arg(PARCELWISE_VERSION_PATCH));
    QStringList args = QCoreApplication::arguments();
    if (!args.isEmpty())
        args.removeFirst();

    int status = cli::ExitError;
    try {
        status = cli::dispatch(args);
    } catch (const std::exception &e) {
        cli::printError(QStringLiteral("unexpected failure: ") + QString::fromLocal8Bit(e.what()));
        status = cli::ExitError;
    } catch (...) {
        cli::printError(QStringLiteral("unexpected failure"));
        status = cli::ExitError;
    }
    HuntERR::setShower({});
    HuntERR::setStopPrompt({});
    // Output that did not arrive (a full disk behind a redirection) is a failure too.
    if (!cli::flushOutput() && (status == cli::ExitDone || status == cli::ExitItemsFailed))
        status = cli::ExitError;
    return status;
}

} // namespace cli
