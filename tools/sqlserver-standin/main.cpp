// sqlserver-standin: serves an embedded server folder over TDS 7.4 on 127.0.0.1 so the tests and
// the benchmark can sign in through the real FreeTDS ODBC driver, and anyone can try that path.
//
//   sqlserver-standin --port N --server DIR [--latency-ms MS] [--max-seconds S] [--no-stdin] [--log]
//                     [--cut-replies-over BYTES] [--browser-port N] [--tls] [--shuffle-ties SEED]
//                     [--stall-on TEXT]
//
// Port 0 takes a free port. The port listened on is printed as "port N" on its own line. The
// stand-in ends by itself when its standard input closes (the test that started it has gone),
// when the process that started it goes away, and after --max-seconds (default 1800).
// --tls offers encryption at pre-login with a self-signed certificate made at start, as a server
// with a certificate that does not force encryption: the login only for a client that merely
// supports it (FreeTDS's default), the whole session for one that asks (Encryption=require).
// --shuffle-ties puts rows that tie on the ORDER BY, and results without one, in an order the seed
// chooses, as SQL Server may send them in any order.
// --browser-port answers as SQL Server Browser does on UDP (1434 on a real server): asked for the
// instance STANDIN, it names the TCP port, so "host\STANDIN" reaches the stand-in.

#include "session.h"

#include "repository/connection.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QTcpServer>
#include <QThread>
#include <QTimer>
#include <QUdpSocket>

#include <atomic>
#include <cstdio>
#include <iostream>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace {

class Server : public QTcpServer {
public:
    explicit Server(const standin::Options &options) : m_options(options) {}

protected:
    void incomingConnection(qintptr socketDescriptor) override
    {
        const quint16 spid = quint16(51 + (m_sessions++ % 30000));
        const standin::Options options = m_options;
        QThread *thread = QThread::create([socketDescriptor, options, spid] {
            standin::Session session(socketDescriptor, options, spid);
            session.run();
        });
        connect(thread, &QThread::finished, thread, &QObject::deleteLater);
        thread->start();
    }

private:
    standin::Options m_options;
    int m_sessions = 0;
};

// SQL Server Browser's answer to a request for one instance (0x04, the name): 0x05, the length,
// then "name;value;" pairs. Other instances and requests go unanswered, as on a real server.
bool startBrowser(QUdpSocket &socket, int port, quint16 tcpPort)
{
    if (!socket.bind(QHostAddress::LocalHost, quint16(port)))
        return false;
    QObject::connect(&socket, &QUdpSocket::readyRead, &socket, [&socket, tcpPort] {
        while (socket.hasPendingDatagrams()) {
            QHostAddress from;
            quint16 fromPort = 0;
            QByteArray request(int(qMax<qint64>(0, socket.pendingDatagramSize())), '\0');
            socket.readDatagram(request.data(), request.size(), &from, &fromPort);
            if (request.size() < 2 || request.at(0) != 4
                || request.mid(1).replace('\0', "").compare("STANDIN", Qt::CaseInsensitive) != 0)
                continue;
            const QByteArray text = "ServerName;STANDIN;InstanceName;STANDIN;IsClustered;No;Version;16.0.1000.6;tcp;"
                                    + QByteArray::number(tcpPort) + ";;";
            QByteArray reply(1, '\x05');
            reply.append(char(text.size() & 0xFF)).append(char(text.size() >> 8)).append(text);
            socket.writeDatagram(reply, from, fromPort);
        }
    });
    return true;
}

// Standard input closed: whoever started the stand-in is gone.
void watchStandardInput()
{
    QThread *watcher = QThread::create([] {
        std::string line;
        while (std::getline(std::cin, line)) {
        }
        QMetaObject::invokeMethod(qApp, [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
    });
    watcher->setParent(qApp);
    watcher->start();
}

// The stand-in ends when standard input closes (watchStdin), after seconds, and when the process
// that started it goes away.
void stopByItself(bool watchStdin, int seconds)
{
    if (watchStdin)
        watchStandardInput();
    QTimer::singleShot(qMax(1, seconds) * 1000, qApp, [] { QCoreApplication::exit(0); });
#ifdef Q_OS_UNIX
    const pid_t parent = getppid();
    QTimer *orphan = new QTimer(qApp);
    QObject::connect(orphan, &QTimer::timeout, qApp, [parent] {
        if (getppid() != parent)
            QCoreApplication::exit(0);
    });
    orphan->start(1000);
#endif
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("TCP port on 127.0.0.1 (0: any free one)."),
                                  QStringLiteral("N"));
    const QCommandLineOption server(QStringLiteral("server"), QStringLiteral("Embedded server folder."),
                                    QStringLiteral("DIR"));
    const QCommandLineOption latency(QStringLiteral("latency-ms"), QStringLiteral("Delay before every reply."),
                                     QStringLiteral("MS"), QStringLiteral("0"));
    const QCommandLineOption lifetime(QStringLiteral("max-seconds"), QStringLiteral("Longest life."),
                                      QStringLiteral("S"), QStringLiteral("1800"));
    const QCommandLineOption noStdin(QStringLiteral("no-stdin"), QStringLiteral("Do not end when stdin closes."));
    const QCommandLineOption log(QStringLiteral("log"), QStringLiteral("Every request on stderr."));
    const QCommandLineOption cut(QStringLiteral("cut-replies-over"),
                                 QStringLiteral("Drop the connection part way through any reply longer than this."),
                                 QStringLiteral("BYTES"), QStringLiteral("0"));
    const QCommandLineOption browser(QStringLiteral("browser-port"),
                                     QStringLiteral("Answer SQL Server Browser's requests for instance STANDIN on this UDP port."),
                                     QStringLiteral("N"), QStringLiteral("0"));
    const QCommandLineOption tls(QStringLiteral("tls"), QStringLiteral("Offer encryption (self-signed certificate)."));
    const QCommandLineOption shuffle(QStringLiteral("shuffle-ties"),
                                     QStringLiteral("Rows in no promised order come in an order this seed chooses."),
                                     QStringLiteral("SEED"));
    const QCommandLineOption stall(QStringLiteral("stall-on"),
                                   QStringLiteral("Leave every batch holding TEXT unanswered until the client cancels it."),
                                   QStringLiteral("TEXT"));
    parser.addOptions({port, server, latency, lifetime, noStdin, log, cut, browser, tls, shuffle, stall});
    parser.process(app);

    bool portOk = false;
    const int portNumber = parser.value(port).toInt(&portOk);
    const QString folder = parser.value(server);
    if (!portOk || portNumber < 0 || portNumber > 65535 || folder.isEmpty() || !QDir(folder).exists()) {
        std::fprintf(stderr, "usage: sqlserver-standin --port N --server DIR [--latency-ms MS]\n");
        return 2;
    }
    repo::setTraceFile(QString()); // the test's trace is the tool's statements only

    standin::Options options;
    options.folder = QDir(folder).absolutePath();
    options.latencyMs = qMax(0, parser.value(latency).toInt());
    options.log = parser.isSet(log);
    options.cutRepliesOver = qMax<qint64>(0, parser.value(cut).toLongLong());
    options.stallOn = parser.value(stall);
    if (parser.isSet(shuffle))
        options.shuffleSeed = parser.value(shuffle).toUInt();
    if (parser.isSet(tls)) {
        QString error;
        options.tls = standin::makeTlsContext(&error);
        if (!options.tls) {
            std::fprintf(stderr, "sqlserver-standin: no certificate: %s\n", qUtf8Printable(error));
            return 1;
        }
    }

    Server listener(options);
    if (!listener.listen(QHostAddress::LocalHost, quint16(portNumber))) {
        std::fprintf(stderr, "sqlserver-standin: cannot listen on 127.0.0.1:%d: %s\n", portNumber,
                     qUtf8Printable(listener.errorString()));
        return 1;
    }
    QUdpSocket browserSocket;
    const int browserPort = parser.value(browser).toInt();
    if (browserPort > 0 && !startBrowser(browserSocket, browserPort, listener.serverPort())) {
        std::fprintf(stderr, "sqlserver-standin: cannot listen on UDP 127.0.0.1:%d: %s\n", browserPort,
                     qUtf8Printable(browserSocket.errorString()));
        return 1;
    }
    std::printf("port %d\n", int(listener.serverPort()));
    std::fflush(stdout);

    stopByItself(!parser.isSet(noStdin), parser.value(lifetime).toInt());
    const int rc = app.exec();
    // Sessions still running are cut off with the process.
    std::_Exit(rc);
}
