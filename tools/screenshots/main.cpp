// Renders the screens shown in the README into a folder (docs/screenshots in this tree), on a
// fresh demo repository, offscreen: the password screen, the sign-in screen, the folder tree,
// the picture list, the application icon, the destination picker, a copy under way (slowed down on
// the disk so that it can be seen) and a real error window.
//   QT_QPA_PLATFORM=offscreen parcelwise-screenshots docs/screenshots
// Built with the tool, never run by the test suite.

#include "app/appicon.h"
#include "app/dialogs.h"
#include "app/fdmsshowerror.h"
#include "app/foldertreeview.h"
#include "app/frmfiledialog.h"
#include "app/frmsendtofolder.h"
#include "app/treeimages.h"
#include "demo/demorepository.h"
#include "export/exportdisk.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cstdio>

using tree::FolderTree;
namespace AppIcon = app::AppIcon;
namespace Dialogs = app::Dialogs;
namespace ErrorWindows = app::ErrorWindows;
using app::FolderTreeView;
using app::FrmSendtofolder;
namespace TreeImages = app::TreeImages;
using app::frmFileDialog;
using app::installErrorWindow;

namespace {

QString g_folder;
int g_failures = 0;

void save(QWidget *w, const char *name)
{
    if (!w->grab().save(QDir(g_folder).filePath(QString::fromLatin1(name)))) {
        std::fprintf(stderr, "could not write %s\n", name);
        ++g_failures;
    }
}

template <class T = QWidget>
T *child(QWidget *w, const char *name)
{
    T *found = w->findChild<T *>(QString::fromLatin1(name));
    if (!found)
        qFatal("no control named %s", name);
    return found;
}

// The password half typed, then the sign-in screen with the archive database chosen.
void signInScreens(FrmSendtofolder &w, const QString &demo)
{
    auto *password = child<QLineEdit>(&w, "TxtLoginPsw");
    password->setFocus(Qt::MouseFocusReason);
    QTest::keyClicks(password, QStringLiteral("brim"));
    save(&w, "password.png");
    password->clear();
    QTest::keyClicks(password, QStringLiteral("brimex"));
    QTest::mouseClick(child<QPushButton>(&w, "cmdUserLogin"), Qt::LeftButton);

    child<QLineEdit>(&w, "txServerName")->setText(demo);
    child<QLineEdit>(&w, "txtUserName")->setText(QStringLiteral("demo"));
    child(&w, "txtPassword")->setFocus(Qt::MouseFocusReason);
    QTest::keyClick(child(&w, "txtPassword"), Qt::Key_Tab);
    auto *list = child<QComboBox>(&w, "cboDBName");
    for (int i = 0; i < list->count() && list->currentText() != QLatin1String("AcmeArchive"); ++i)
        QTest::keyClick(list, Qt::Key_Down);
    save(&w, "sign-in.png");
}

// The root and two folders opened with the mouse, one ticked, a destination in the status line.
void folderScreen(FrmSendtofolder &w, const QString &out)
{
    QTest::mouseClick(child<QPushButton>(&w, "cmdlogin"), Qt::LeftButton);
    FolderTree &tree = w.folderTree();
    auto *view = child<FolderTreeView>(&w, "tvDefaultRoot");
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->rowRect(tree.node(1)).center());
    for (const char *key : {"Fold20", "Fold10"})
        if (FolderTree::Node *n = tree.find(QString::fromLatin1(key)))
            QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->rowRect(n).center());
    if (FolderTree::Node *n = tree.find(QStringLiteral("Fold20")))
        tree.setData(tree.indexOf(n), Qt::Checked, Qt::CheckStateRole);
    w.setStatus(QStringLiteral(" Destination path:  ") + QDir::toNativeSeparators(out));
    save(&w, "folders.png");
}

// Every folder below the root copied, each step on the disk slowed down; caught part way, then
// cancelled.
void copyScreen(FrmSendtofolder &w, const QString &out)
{
    FolderTree &tree = w.folderTree();
    for (FolderTree::Node *top : tree.node(1)->children)
        tree.setData(tree.indexOf(top), Qt::Checked, Qt::CheckStateRole);
    QDir().mkpath(out);
    w.signIn().DestinationPath = out;
    exporting::ExportDisk::setStepHook([](const QString &, const QString &) { QThread::msleep(100); });
    Dialogs::setNextAnswers({Dialogs::Answer::button(QMessageBox::Ok)});
    QTest::mouseClick(child<QPushButton>(&w, "cmdStart"), Qt::LeftButton);
    auto *progress = child<QProgressBar>(&w, "prgCopy");
    (void)QTest::qWaitFor([&] { return !w.isCopying() || !progress->text().startsWith(QLatin1String("0 ")); }, 10000);
    save(&w, "copy.png");
    QTest::mouseClick(child<QPushButton>(&w, "cmdCancelCopy"), Qt::LeftButton);
    if (!QTest::qWaitFor([&] { return !w.isCopying(); }, 30000))
        ++g_failures;
    exporting::ExportDisk::setStepHook({});
}

// The image list, numbered, each picture at its own size, at twice and three times that.
void pictureSheet()
{
    const int cell = 80, band = 150;
    QPixmap sheet(15 * cell, 2 * band);
    sheet.fill(Qt::white);
    QPainter p(&sheet);
    for (int i = 1; i <= 29; ++i) {
        const int x = ((i - 1) % 15) * cell, y = ((i - 1) / 15) * band;
        p.drawText(QRect(x, y + 2, cell, 16), Qt::AlignCenter, QString::number(i));
        p.drawPixmap(x + (cell - 16) / 2, y + 22, TreeImages::pixmap(i, 16));
        p.drawPixmap(x + (cell - 32) / 2, y + 44, TreeImages::pixmap(i, 32));
        p.drawPixmap(x + (cell - 48) / 2, y + 82, TreeImages::pixmap(i, 48));
    }
    p.end();
    if (!sheet.save(QDir(g_folder).filePath(QStringLiteral("tree-images.png"))))
        ++g_failures;
    if (!AppIcon::icon().pixmap(128).save(QDir(g_folder).filePath(QStringLiteral("app-icon.png"))))
        ++g_failures;
}

// The picker, then a real failure (a drive that does not exist) shown through the error window.
void pickerAndError(QWidget *parent)
{
    frmFileDialog picker(parent);
    picker.show();
    if (!QTest::qWaitForWindowExposed(&picker))
        ++g_failures;
    save(&picker, "picker.png");
    picker.close();

    installErrorWindow();
    ErrorWindows::setModalHook([](QDialog &dialog) { save(&dialog, "error.png"); });
    frmFileDialog failing(parent);
    failing.drives()->addItem(QStringLiteral("Z:\\"), QStringLiteral("/no-such-drive/"));
    failing.drives()->setCurrentIndex(failing.drives()->count() - 1);
    ErrorWindows::setModalHook({});
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: parcelwise-screenshots FOLDER\n");
        return 2;
    }
    g_folder = QString::fromLocal8Bit(argv[1]);
    QTemporaryDir tmp;
    // Settings and the documents folder stay inside the temporary folder.
    qputenv("HOME", QFile::encodeName(tmp.filePath(QStringLiteral("home"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(tmp.filePath(QStringLiteral("home/.config"))));
    const QString demo = tmp.filePath(QStringLiteral("demo"));
    QString error;
    if (!tmp.isValid() || !QDir().mkpath(g_folder) || !writeDemoRepository(demo, &error)) {
        std::fprintf(stderr, "cannot prepare: %s\n", qPrintable(error));
        return 1;
    }
    Dialogs::setScripted(true);
    FrmSendtofolder w;
    w.show();
    w.activateWindow();
    if (!QTest::qWaitForWindowActive(&w)) {
        std::fprintf(stderr, "the window never became active\n");
        return 1;
    }
    signInScreens(w, demo);
    folderScreen(w, tmp.filePath(QStringLiteral("out")));
    copyScreen(w, tmp.filePath(QStringLiteral("out")));
    pictureSheet();
    pickerAndError(&w);
    return g_failures == 0 ? 0 : 1;
}
