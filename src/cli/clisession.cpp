#include "cli/clisession.h"

#include "cli/terminal.h"

#include "repository/connection.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using tree::FolderTree;
using tree::folderIdOfKey;
using session::HeadlessSession;
using session::PlainFormPort;

namespace cli {

namespace {

const QString Prefix = QStringLiteral("parcelwise: ");

// Set by the error trail's shower: some event handler ended in an error report.
bool g_reportShown = false;
int g_failureStatus = 0; // 0: no failure told yet
QString g_command;       // the command run

void noteFailure(int status)
{
    if (g_failureStatus == 0)
        g_failureStatus = status;
}

// What a report's error number says about where the fault lies.
int statusOfReport(qint32 number, const QString &report)
{
    // The server was reached but would not open the database for this login.
    if (number == repo::ERR_LOGIN_REJECTED || report.contains(QLatin1String("Cannot open database")))
        return ExitSignInRefused;
    if (number == repo::ERR_UNREACHABLE)
        return ExitUnreachable;
    // Files of our own that could not be made or read: a local problem, not the repository's.
    if (number == HuntERR::ERR_PATH_NOT_FOUND || number == HuntERR::ERR_PATH_FILE_ACCESS
        || number == HuntERR::ERR_WRITE_FAILED || number == HuntERR::ERR_OUT_OF_MEMORY)
        return ExitError;
    return ExitNotRepository;
}

// The sign-in's and the tree's messages, by their text: the procedures tell nothing else.
int statusOfMessage(const QString &text)
{
    if (text.startsWith(QLatin1String("Please ")))
        return ExitError; // a box left empty: --server, --user or --database missing
    if (text.startsWith(QLatin1String("SQL Server does not exist or access denied")))
        return ExitUnreachable;
    if (text == QLatin1String("Invalid database selected"))
        return ExitNotRepository;
    return ExitSignInRefused; // the login's refusal as the server words it; a database not there
}

bool readPasswordFile(const QString &path, QString *password)
{
    QFile file(path);
    if (path.trimmed().isEmpty() || !file.open(QIODevice::ReadOnly)) {
        printError(printable(QStringLiteral("cannot read the password file \"%1\": %2")
                                 .arg(path, path.trimmed().isEmpty() ? QStringLiteral("no file name") : file.errorString())));
        return false;
    }
    QByteArray line = file.readLine(64 * 1024);
    while (line.endsWith('\n') || line.endsWith('\r'))
        line.chop(1);
    *password = QString::fromUtf8(line);
    return true;
}

} // namespace

int failureStatus()
{
    return g_failureStatus == 0 ? ExitError : g_failureStatus;
}

bool reportShown()
{
    return g_reportShown;
}

void printError(const QString &text)
{
    writeErr(Prefix + text + QLatin1Char('\n'));
}

int usageError(const QString &text, const QString &command)
{
    printError(text);
    writeErr(QStringLiteral("Try 'parcelwise") + (command.isEmpty() ? QString() : QLatin1Char(' ') + command)
             + QStringLiteral(" --help' for more information.\n"));
    return ExitError;
}

bool wholeNumberOption(const Parsed &p, const QString &option, const char *what, int low, int high, int *value,
                       int *status)
{
    if (!p.has(option))
        return true;
    bool ok = false;
    const QString text = p.value(option).trimmed();
    const int number = text.toInt(&ok);
    if (ok && number >= low && number <= high) {
        *value = number;
        return true;
    }
    *status = usageError(QStringLiteral("%1 needs %2 from %3 to %4, not \"%5\"")
                             .arg(option, QLatin1String(what))
                             .arg(low)
                             .arg(high)
                             .arg(printable(text)),
                         p.command);
    return false;
}

void installErrorShower(const QString &command)
{
    g_command = command;
    g_reportShown = false;
    g_failureStatus = 0;
    HuntERR::setShower([](const QString &report) {
        g_reportShown = true;
        noteFailure(statusOfReport(HuntERR::current().number, report));
        QString text = report;
        text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
        if (!text.endsWith(QLatin1Char('\n')))
            text += QLatin1Char('\n');
        writeErr(Prefix + QStringLiteral("error report:\n") + printable(text, true));
    });
    // Nobody is there to answer a step-mode question: never stop.
    HuntERR::setStopPrompt([](const QString &, const QString &) { return 2; });
    HuntERR::setPointerReset({});
}


bool readSignIn(const Parsed &p, SignInValues *values)
{
    values->server = p.value(QStringLiteral("--server"));
    values->user = p.value(QStringLiteral("--user"));
    if (p.has(QStringLiteral("--password-stdin")) && p.has(QStringLiteral("--password-file"))) {
        usageError(QStringLiteral("--password-stdin and --password-file cannot be combined"), p.command);
        return false;
    }
    if (p.has(QStringLiteral("--password-file")))
        return readPasswordFile(p.value(QStringLiteral("--password-file")), &values->password);
    if (p.has(QStringLiteral("--password-stdin"))) {
        if (!readStdinLine(&values->password)) {
            printError(QStringLiteral("--password-stdin was given but standard input holds no line "
                                      "(send an empty line for an empty password)"));
            return false;
        }
    } else {
        values->password = qEnvironmentVariable("PARCELWISE_PASSWORD");
    }
    return true;
}

QString displayId(const FolderTree::Node *node)
{
    return QString::number(folderIdOfKey(node->key));
}

void CommandLinePort::message(const QString &text)
{
    PlainFormPort::message(text);
    noteFailure(statusOfMessage(text));
    // A box left empty is an option left out: the command's help says which.
    if (statusOfMessage(text) == ExitError)
        usageError(printable(text, true), g_command);
    else
        printError(printable(text, true));
}

bool Session::fillDatabaseList(const QString &server, const QString &user, const QString &password)
{
    return headless.fillDatabaseList(server, user, password) && !g_reportShown;
}

bool Session::openDatabase(const QString &database)
{
    switch (headless.openDatabase(database)) {
    case HeadlessSession::Opened::Yes:
        return !g_reportShown;
    case HeadlessSession::Opened::Refused:
        noteFailure(ExitSignInRefused);
        if (port.messages.isEmpty())
            printError(QStringLiteral("the sign-in was refused"));
        return false;
    case HeadlessSession::Opened::InvalidDatabase:
        noteFailure(ExitNotRepository);
        if (port.messages.isEmpty())
            printError(QStringLiteral("Invalid database selected"));
        return false;
    case HeadlessSession::Opened::Failed:
        break;
    }
    return false;
}

bool Session::open(FolderTree::Node *node)
{
    if (m_opened.contains(node->key))
        return true;
    m_opened.insert(node->key);
    return headless.click(node) && !g_reportShown;
}

bool signInTo(const Parsed &p, Session &session)
{
    SignInValues values;
    return readSignIn(p, &values) && session.fillDatabaseList(values.server, values.user, values.password)
        && session.openDatabase(p.value(QStringLiteral("--database")));
}

QString absoluteNative(const QString &path)
{
    return QDir::toNativeSeparators(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
}

} // namespace cli
