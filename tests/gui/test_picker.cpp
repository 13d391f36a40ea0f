// The destination picker on real folders: where it starts, what "&Close" and the close box
// leave behind, moving through folders, an unreadable drive, and the picker reached from the
// main window's "&Select Destination".

#include "app/dialogs.h"
#include "app/frmfiledialog.h"
#include "app/frmsendtofolder.h"
#include "errors/hunterr.h"
#include "testsupport.h"

#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPushButton>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

using Dialogs::Answer;

class TestPicker : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    QString m_start;      // the process's current folder while a test runs
    QString m_previousCwd;
    QStringList m_errors; // what the error trail showed

    static QString native(const QString &path) { return QDir::toNativeSeparators(QDir::cleanPath(path)); }

    static QListWidgetItem *entryFor(DirList *list, const QString &path)
    {
        for (int i = 0; i < list->count(); ++i)
            if (QDir::cleanPath(DirList::entryPath(list->item(i))) == QDir::cleanPath(path))
                return list->item(i);
        return nullptr;
    }

    // Double-clicks an entry as a person would.
    static void open(DirList *list, QListWidgetItem *item)
    {
        QVERIFY(item);
        const QPoint at = list->visualItemRect(item).center();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        m_previousCwd = QDir::currentPath();
        m_start = m_tmp.filePath(QStringLiteral("start"));
        for (const char *sub : {"start/Alpha/Inner", "start/Beta", "start/gamma"})
            QVERIFY(QDir().mkpath(m_tmp.filePath(QString::fromLatin1(sub))));
        QVERIFY(QDir::setCurrent(m_start));
    }

    void cleanupTestCase() { QDir::setCurrent(m_previousCwd); }

    void init()
    {
        m_errors.clear();
        HuntERR::reset();
        HuntERR::setShower([this](const QString &text) { m_errors << text; });
    }

    void startsInCurrentFolder()
    {
        frmFileDialog picker;
        QCOMPARE(picker.windowTitle(), QStringLiteral("Select Destination"));
        QVERIFY(picker.isModal());
        auto *drives = picker.findChild<QComboBox *>(QStringLiteral("Drive1"));
        auto *folders = picker.findChild<DirList *>(QStringLiteral("Dir1"));
        auto *close = picker.findChild<QPushButton *>(QStringLiteral("cmdClose"));
        QVERIFY(drives && folders && close);
        QCOMPARE(close->text(), QStringLiteral("&Close"));

        // The drive list holds the machine's volumes and shows the one of the current folder.
        QCOMPARE(drives->currentData().toString(), QStorageInfo(m_start).rootPath());
        for (const QString &root : frmFileDialog::volumeRoots())
            QVERIFY2(drives->findData(root) >= 0, qPrintable(root));

        // The folder list is open on the start folder: its ancestors above, its folders below.
        QCOMPARE(folders->path(), native(m_start));
        QVERIFY(entryFor(folders, QDir(m_start).filePath(QStringLiteral("Alpha"))));
        QVERIFY(entryFor(folders, QDir(m_start).filePath(QStringLiteral("Beta"))));
        QVERIFY(entryFor(folders, QDir(m_start).filePath(QStringLiteral("gamma"))));
        QVERIFY(entryFor(folders, m_tmp.path()));
        QVERIFY(!entryFor(folders, QDir(m_start).filePath(QStringLiteral("Alpha/Inner"))));
        QCOMPARE(DirList::entryPath(folders->currentItem()), QDir::cleanPath(m_start));

        // "&Close" at once takes the start folder.
        picker.show();
        QTest::mouseClick(close, Qt::LeftButton);
        QCOMPARE(picker.chosenPath(), std::optional<QString>(native(m_start)));
        QVERIFY(!picker.isVisible());
        QVERIFY(m_errors.isEmpty());
    }

    void movingThroughFolders()
    {
        frmFileDialog picker;
        picker.show();
        DirList *folders = picker.directories();

        // A single click only highlights: the open folder is what "&Close" takes.
        QListWidgetItem *beta = entryFor(folders, QDir(m_start).filePath(QStringLiteral("Beta")));
        QVERIFY(beta);
        QTest::mouseClick(folders->viewport(), Qt::LeftButton, {}, folders->visualItemRect(beta).center());
        QCOMPARE(folders->currentItem(), beta);
        QCOMPARE(folders->path(), native(m_start));

        // Down into Alpha, then Inner, then back up by the ancestor entry.
        open(folders, entryFor(folders, QDir(m_start).filePath(QStringLiteral("Alpha"))));
        QCOMPARE(folders->path(), native(m_start + QStringLiteral("/Alpha")));
        open(folders, entryFor(folders, QDir(m_start).filePath(QStringLiteral("Alpha/Inner"))));
        QCOMPARE(folders->path(), native(m_start + QStringLiteral("/Alpha/Inner")));
        QCOMPARE(folders->count(), QDir::cleanPath(m_start).count(QLatin1Char('/')) + 3); // chain only
        open(folders, entryFor(folders, m_start));
        QCOMPARE(folders->path(), native(m_start));

        // Keyboard: Enter opens the current entry.
        folders->setCurrentItem(entryFor(folders, QDir(m_start).filePath(QStringLiteral("gamma"))));
        QTest::keyClick(folders, Qt::Key_Return);
        QCOMPARE(folders->path(), native(m_start + QStringLiteral("/gamma")));

        picker.cmdClose_Click();
        QCOMPARE(picker.chosenPath(), std::optional<QString>(native(m_start + QStringLiteral("/gamma"))));

        // A folder that vanished under the list is an error, and the list stays where it was.
        frmFileDialog again;
        again.show();
        const QString doomed = m_tmp.filePath(QStringLiteral("start/Beta"));
        QListWidgetItem *gone = entryFor(again.directories(), doomed);
        QVERIFY(QDir(doomed).removeRecursively());
        QVERIFY(!again.Dir1_Open(gone));
        QCOMPARE(m_errors.size(), 1);
        QVERIFY(m_errors.first().contains(QStringLiteral("frmFileDialog.Dir1_Change")));
        QCOMPARE(again.directories()->path(), native(m_start));
        QVERIFY(QDir().mkpath(doomed));
    }

    void unreadableDrive()
    {
        frmFileDialog picker;
        picker.show();
        QComboBox *drives = picker.drives();
        const int home = drives->currentIndex();
        const QString missing = m_tmp.filePath(QStringLiteral("no-medium/"));
        drives->addItem(QStringLiteral("Z:\\"), missing);

        // Choosing it reports through the error trail; the folder list keeps its folder while the
        // drive list shows the unreadable drive.
        drives->setFocus();
        QTest::keyClick(drives, Qt::Key_End);
        QCOMPARE(drives->currentText(), QStringLiteral("Z:\\"));
        QCOMPARE(m_errors.size(), 1);
        QVERIFY2(m_errors.first().contains(QStringLiteral("Device unavailable")), qPrintable(m_errors.first()));
        QVERIFY(m_errors.first().contains(QStringLiteral("frmFileDialog.Drive1_Change")));
        QVERIFY(m_errors.first().contains(QStringLiteral("Error Number: 68 ")));
        QCOMPARE(picker.directories()->path(), native(m_start));
        QVERIFY(picker.isVisible());

        // A file where a drive should be is no better.
        QFile plain(m_tmp.filePath(QStringLiteral("plain-file")));
        QVERIFY(plain.open(QIODevice::WriteOnly));
        plain.close();
        drives->addItem(QStringLiteral("Y:\\"), plain.fileName());
        drives->setCurrentIndex(drives->count() - 1);
        QCOMPARE(m_errors.size(), 2);
        QCOMPARE(picker.directories()->path(), native(m_start));

        // Still usable: back on the good drive the list opens at its root, and "&Close" works.
        drives->setCurrentIndex(home);
        QCOMPARE(m_errors.size(), 2);
        const QString root = drives->currentData().toString();
        QCOMPARE(picker.directories()->path(), native(root));
        const QString firstStep = QDir(root).relativeFilePath(m_tmp.path()).section(QLatin1Char('/'), 0, 0);
        open(picker.directories(), entryFor(picker.directories(), QDir(root).absoluteFilePath(firstStep)));
        const QString opened = picker.directories()->path();
        QVERIFY(opened != native(root));
        QTest::mouseClick(picker.closeButton(), Qt::LeftButton);
        QCOMPARE(picker.chosenPath(), std::optional<QString>(opened));
    }

    void fromTheMainWindow()
    {
        QString error;
        const QString demo = writeDemo(m_tmp.filePath(QStringLiteral("server")), &error);
        QVERIFY2(!demo.isEmpty(), qPrintable(error));
        Dialogs::setScripted(true);

        FrmSendtofolder window;
        window.show();
        window.findChild<QLineEdit *>(QStringLiteral("TxtLoginPsw"))->setText(QStringLiteral("BRIMEX"));
        QVERIFY(window.cmdUserLogin_Click());
        window.findChild<QLineEdit *>(QStringLiteral("txServerName"))->setText(demo);
        window.findChild<QLineEdit *>(QStringLiteral("txtUserName"))->setText(QStringLiteral("demo"));
        QVERIFY(window.cboDBName_GotFocus());
        QVERIFY(window.cmdlogin_Click());
        QCOMPARE(window.currentScreen()->objectName(), QStringLiteral("frameSelectFolder"));
        auto *destination = window.findChild<QPushButton *>(QStringLiteral("cmdDestination"));
        auto *status = window.findChild<QLineEdit *>(QStringLiteral("txtProg"));

        // Closed through its close box before anything was chosen: the status names nothing.
        Dialogs::setNextAnswers({Answer::drive([](frmFileDialog &picker) { picker.close(); })});
        QTest::mouseClick(destination, Qt::LeftButton);
        QCOMPARE(window.signIn().DestinationPath, QString());
        QCOMPARE(status->text(), QStringLiteral(" Destination path:  "));

        // The real picker, "&Close" at once: the start folder.
        Dialogs::setNextAnswers({Answer::drive([](frmFileDialog &picker) { picker.closeButton()->click(); })});
        QTest::mouseClick(destination, Qt::LeftButton);
        QCOMPARE(window.signIn().DestinationPath, native(m_start));
        QCOMPARE(status->text(), QStringLiteral(" Destination path:  ") + native(m_start));

        // Moving elsewhere and leaving by the close box keeps the previous destination.
        Dialogs::setNextAnswers({Answer::drive([this](frmFileDialog &picker) {
            open(picker.directories(), entryFor(picker.directories(), QDir(m_start).filePath(QStringLiteral("Beta"))));
            picker.close();
        })});
        QTest::mouseClick(destination, Qt::LeftButton);
        QCOMPARE(window.signIn().DestinationPath, native(m_start));
        QCOMPARE(status->text(), QStringLiteral(" Destination path:  ") + native(m_start));

        // An unreadable drive inside the picker is reported, and the picker still delivers.
        Dialogs::setNextAnswers({Answer::drive([this](frmFileDialog &picker) {
            picker.drives()->addItem(QStringLiteral("Z:\\"), m_tmp.filePath(QStringLiteral("no-medium/")));
            picker.drives()->setCurrentIndex(picker.drives()->count() - 1);
            open(picker.directories(), entryFor(picker.directories(), QDir(m_start).filePath(QStringLiteral("Alpha"))));
            QTest::mouseClick(picker.closeButton(), Qt::LeftButton);
        })});
        QTest::mouseClick(destination, Qt::LeftButton);
        QCOMPARE(m_errors.size(), 1);
        QCOMPARE(window.signIn().DestinationPath, native(m_start + QStringLiteral("/Alpha")));
        QCOMPARE(status->text(), QStringLiteral(" Destination path:  ") + native(m_start + QStringLiteral("/Alpha")));
        QCOMPARE(Dialogs::pendingAnswers(), 0);
        Dialogs::setScripted(false);
    }
};

QTEST_MAIN(TestPicker)
#include "test_picker.moc"
