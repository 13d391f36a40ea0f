#include "cli/clisession.h"

#include "cli/terminal.h"

#include <QDir>
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

} // namespace

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

void installErrorShower()
{
    g_reportShown = false;
    HuntERR::setShower([](const QString &report) {
        g_reportShown = true;
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
        if (port.messages.isEmpty())
            printError(QStringLiteral("the sign-in was refused"));
        return false;
    case HeadlessSession::Opened::InvalidDatabase:
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
