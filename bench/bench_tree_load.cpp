// Times a click on a folder with many children, live and archive, as the window does it: sign in
// with the window's procedures, click the way down to the folder, then click the folder again
// and again (each click throws away the children and reads them anew). Prints the median click
// and, for comparison, the median time of the click's own statements sent straight to the
// connection, so a slow click can be told apart from a slow database.
//
//   bench_tree_load SERVER [--user U] [--runs N] [--live DB] [--archive DB] [--folder NAME]
//
// The password comes from PARCELWISE_PASSWORD (empty when unset). Every figure goes to standard
// output; the lines starting with "RESULT" are for scripts.

#include "errors/hunterr.h"
#include "session/headlesssession.h"
#include "repository/connection.h"
#include "session/formport.h"
#include "tree/foldertree.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <vector>

using tree::FolderTree;
using session::HeadlessSession;
using session::PlainFormPort;

namespace {

QTextStream &out()
{
    static QTextStream s(stdout);
    return s;
}

QTextStream &err()
{
    static QTextStream s(stderr);
    return s;
}

bool g_reported = false;

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

QString ms(double value)
{
    return QString::number(value, 'f', 1);
}

struct Figures {
    QString database;
    int children = 0;
    std::vector<double> clicks;     // ms per click
    int statements = 0;             // statements one click sends
    std::vector<double> statementRuns; // ms for all of a click's statements, sent directly
};

// The window's gestures without the window; every step runs under the window's own handler.
class Session {
public:
    PlainFormPort port;
    HeadlessSession session{port};

    bool signInTo(const QString &server, const QString &user, const QString &password, const QString &database)
    {
        const HeadlessSession::Opened opened = session.signIn(server, user, password, database);
        if (opened == HeadlessSession::Opened::Yes && !g_reported)
            return true;
        err() << "bench_tree_load: the sign-in to " << database << " was refused";
        if (!port.messages.isEmpty())
            err() << ": " << port.messages.join(QStringLiteral("; "));
        err() << "\n";
        return false;
    }

    FolderTree::Node *root() const { return session.root(); }
    bool click(FolderTree::Node *node) { return session.click(node) && !g_reported; }
    repo::Connection &connection() { return session.signin.cnDb(); }
};

// The statements a click sends, caught from the SQL trace.
QStringList statementsOfOneClick(Session &s, FolderTree::Node *folder, bool *ok)
{
    QTemporaryDir dir;
    const QString trace = dir.filePath(QStringLiteral("trace.sql"));
    const QString previous = repo::traceFile();
    repo::setTraceFile(trace);
    *ok = s.click(folder);
    repo::setTraceFile(previous);
    QFile f(trace);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool measure(const QString &server, const QString &user, const QString &password, const QString &database,
             const QString &folderName, int runs, Figures *f)
{
    f->database = database;
    Session s;
    QElapsedTimer timer;
    timer.start();
    if (!s.signInTo(server, user, password, database))
        return false;
    FolderTree::Node *root = s.root();
    if (!root) {
        err() << "bench_tree_load: " << database << " has no root folder\n";
        return false;
    }
    if (!s.click(root))
        return false;
    FolderTree::Node *folder = s.session.child(root, folderName);
    if (!folder) {
        err() << "bench_tree_load: no folder \"" << folderName << "\" below the root of " << database << "\n";
        return false;
    }
    out() << QStringLiteral("%1: signed in and opened the root in %2 ms; clicking \"%3\" (%4) %5 times\n")
                 .arg(database, ms(double(timer.nsecsElapsed()) / 1e6), folderName, folder->key)
                 .arg(runs);
    out().flush();

    for (int run = 0; run < runs; ++run) {
        timer.restart();
        if (!s.click(folder))
            return false;
        const double took = double(timer.nsecsElapsed()) / 1e6;
        const int children = int(folder->children.size());
        if (run > 0 && children != f->children) {
            err() << "bench_tree_load: click " << run + 1 << " loaded " << children << " children, the first "
                  << f->children << "\n";
            return false;
        }
        f->children = children;
        f->clicks.push_back(took);
        out() << QStringLiteral("  click %1: %2 children in %3 ms\n").arg(run + 1).arg(children).arg(ms(took));
        out().flush();
    }

    // The same statements without the tree: what the database alone costs.
    bool ok = false;
    const QStringList statements = statementsOfOneClick(s, folder, &ok);
    if (!ok)
        return false;
    f->statements = int(statements.size());
    repo::Connection &cn = s.connection();
    for (int run = 0; run < runs; ++run) {
        timer.restart();
        const bool sent = HuntERR::handler(QStringLiteral("bench.statements"), [&] {
            for (const QString &sql : statements)
                cn.execute(sql);
        });
        if (!sent || g_reported)
            return false;
        f->statementRuns.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    out() << QStringLiteral("  the click's %1 statements alone: median %2 ms\n")
                 .arg(f->statements)
                 .arg(ms(median(f->statementRuns)));
    return true;
}

void printResult(const QString &mode, const Figures &f)
{
    const auto [lo, hi] = std::minmax_element(f.clicks.begin(), f.clicks.end());
    out() << QStringLiteral("RESULT %1 database=%2 children=%3 runs=%4 median_ms=%5 min_ms=%6 max_ms=%7 "
                            "statements=%8 statements_median_ms=%9\n")
                 .arg(mode, f.database)
                 .arg(f.children)
                 .arg(f.clicks.size())
                 .arg(ms(median(f.clicks)), ms(*lo), ms(*hi))
                 .arg(f.statements)
                 .arg(ms(median(f.statementRuns)));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench_tree_load"));

    QCommandLineParser p;
    p.setApplicationDescription(QStringLiteral("Times clicks on a folder with many children, live and archive."));
    p.addHelpOption();
    p.addPositionalArgument(QStringLiteral("SERVER"), QStringLiteral("Server: an embedded server folder or a SQL Server name."));
    const QCommandLineOption user(QStringLiteral("user"), QStringLiteral("User name (default demo)."),
                                  QStringLiteral("U"), QStringLiteral("demo"));
    const QCommandLineOption runs(QStringLiteral("runs"), QStringLiteral("Clicks per database (default 5)."),
                                  QStringLiteral("N"), QStringLiteral("5"));
    const QCommandLineOption live(QStringLiteral("live"), QStringLiteral("Live database (default BigCorp; \"-\" skips it)."),
                                  QStringLiteral("DB"), QStringLiteral("BigCorp"));
    const QCommandLineOption archive(QStringLiteral("archive"),
                                     QStringLiteral("Archive database (default BigCorpArchive; \"-\" skips it)."),
                                     QStringLiteral("DB"), QStringLiteral("BigCorpArchive"));
    const QCommandLineOption folder(QStringLiteral("folder"), QStringLiteral("Folder below the root to click (default Wide)."),
                                    QStringLiteral("NAME"), QStringLiteral("Wide"));
    p.addOptions({user, runs, live, archive, folder});
    p.process(app);

    if (p.positionalArguments().size() != 1) {
        err() << "bench_tree_load: give exactly one server (see --help)\n";
        return 2;
    }
    bool ok = false;
    const int runCount = p.value(runs).toInt(&ok);
    if (!ok || runCount < 1 || runCount > 1000) {
        err() << "bench_tree_load: --runs must be a whole number from 1 to 1000\n";
        return 2;
    }

    HuntERR::setShower([](const QString &report) {
        g_reported = true;
        QString text = report;
        text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
        err() << "bench_tree_load: error report:\n" << text << "\n";
        err().flush();
    });
    HuntERR::setStopPrompt([](const QString &, const QString &) { return 2; });

    const QString server = p.positionalArguments().first();
    const QString password = qEnvironmentVariable("PARCELWISE_PASSWORD");
    int status = 0;
    const QList<QPair<QString, QString>> modes = {{QStringLiteral("live"), p.value(live)},
                                                  {QStringLiteral("archive"), p.value(archive)}};
    for (const auto &[mode, database] : modes) {
        if (database == QLatin1String("-"))
            continue;
        Figures f;
        if (!measure(server, p.value(user), password, database, p.value(folder), runCount, &f)) {
            status = 1;
            continue;
        }
        printResult(mode, f);
        out().flush();
    }
    return status;
}
