// How long the window's event loop is kept from running while the window copies: the real main
// window, offscreen, signed in to a repository with its own handlers, every folder below the root
// ticked, "Start &Copy" confirmed. A timer asks the loop every millisecond for the length of the
// copy; the longest gap between two of its ticks is the longest a person would wait for the window
// to answer (a click, a repaint, Cancel). The jobs come from the window's setting ("export/jobs",
// 4 unless --jobs sets it).
//
//   bench_window_stall SERVER DEST [--database DB] [--user U] [--jobs N]
//
// The password comes from PARCELWISE_PASSWORD (empty when unset). DEST must exist. The line
// starting with "RESULT" is for scripts.

#include "app/dialogs.h"
#include "app/frmsendtofolder.h"
#include "errors/hunterr.h"

#include <QApplication>
#include <QComboBox>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

namespace Dialogs = app::Dialogs;
using app::FrmSendtofolder;
using tree::FolderTree;

namespace {

bool g_failed = false;

void fail(const QString &why)
{
    QTextStream(stderr) << "bench_window_stall: " << why << '\n';
    g_failed = true;
}

template <class T>
T *child(FrmSendtofolder &w, const char *name)
{
    return w.findChild<T *>(QString::fromLatin1(name));
}

// The password, the sign-in boxes, the database list and "&OK", each through the window's handler.
bool signIn(FrmSendtofolder &w, const QString &server, const QString &user, const QString &database)
{
    child<QLineEdit>(w, "TxtLoginPsw")->setText(QStringLiteral("brimex"));
    w.cmdUserLogin_Click();
    child<QLineEdit>(w, "txServerName")->setText(server);
    child<QLineEdit>(w, "txtUserName")->setText(user);
    child<QLineEdit>(w, "txtPassword")->setText(qEnvironmentVariable("PARCELWISE_PASSWORD"));
    w.cboDBName_GotFocus();
    auto *list = child<QComboBox>(w, "cboDBName");
    list->setCurrentIndex(list->findText(database));
    w.cboDBName_Click();
    w.cmdlogin_Click();
    return w.currentScreen() == child<QWidget>(w, "frameSelectFolder");
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home; // settings and the export log stay in here
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral(".config"))));
    QApplication app(argc, argv);
    QCommandLineParser p;
    p.addPositionalArgument(QStringLiteral("server"), QStringLiteral("The repository (an embedded server's folder)."));
    p.addPositionalArgument(QStringLiteral("dest"), QStringLiteral("An existing folder to copy into."));
    p.addOptions({{QStringLiteral("database"), QStringLiteral("Database."), QStringLiteral("db"), QStringLiteral("BigCorp")},
                  {QStringLiteral("user"), QStringLiteral("User name."), QStringLiteral("u"), QStringLiteral("demo")},
                  {QStringLiteral("jobs"), QStringLiteral("The window's jobs setting."), QStringLiteral("n")}});
    p.addHelpOption();
    p.process(app);
    if (p.positionalArguments().size() != 2)
        p.showHelp(2);
    if (p.isSet(QStringLiteral("jobs")))
        QSettings().setValue(QStringLiteral("export/jobs"), p.value(QStringLiteral("jobs")));

    Dialogs::setScripted(true); // the question answered OK, the closing message closed at once
    HuntERR::setShower([](const QString &report) { fail(report); });
    FrmSendtofolder w;
    w.show();
    if (!signIn(w, p.positionalArguments()[0], p.value(QStringLiteral("user")), p.value(QStringLiteral("database"))))
        fail(QStringLiteral("the sign-in did not reach the folder screen: %1").arg(Dialogs::shownTexts().join(u'\n')));
    FolderTree &tree = w.folderTree();
    if (g_failed || !w.treeProcs().tvDefaultRoot_NodeClick(tree.node(1)))
        return 1;
    for (FolderTree::Node *top : tree.node(1)->children)
        tree.setData(tree.indexOf(top), Qt::Checked, Qt::CheckStateRole);
    w.signIn().DestinationPath = p.positionalArguments()[1];

    QElapsedTimer clock;
    qint64 last = 0, longest = 0, ticks = 0, over50 = 0;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const qint64 now = clock.elapsed(), gap = now - last;
        last = now;
        ++ticks;
        longest = qMax(longest, gap);
        over50 += gap > 50 ? 1 : 0;
    });
    QObject::connect(&w, &FrmSendtofolder::copyFinished, &app, &QCoreApplication::quit);
    QTimer::singleShot(0, [&] {
        clock.start();
        ticker.start(1);
        child<QPushButton>(w, "cmdStart")->click();
    });
    app.exec();
    const qint64 copyMs = clock.elapsed();
    const exporting::ExportResult &result = w.exporter().lastResult();
    if (g_failed || result.documents == 0)
        return 1;
    std::printf("RESULT window max_gap_ms=%lld copy_ms=%lld documents=%lld bytes=%lld ticks=%lld gaps_over_50ms=%lld "
                "jobs=%d\n",
                longest, copyMs, result.documents, result.bytes, ticks, over50, result.jobs);
    return 0;
}
