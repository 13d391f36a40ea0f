// The destination picker on real folders: where it starts, moving through folders, an unreadable
// drive, and what "&Close" and the close box leave behind when the main window's
// "&Select Destination" opens it.

#include "app/dialogs.h"
#include "app/frmfiledialog.h"
#include "app/frmsendtofolder.h"
#include "windowharness.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QStorageInfo>

namespace Dialogs = app::Dialogs;
using app::DirList;
using app::FrmSendtofolder;
using app::frmFileDialog;

using Dialogs::Answer;

class TestPicker : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    QString m_start; // the process's current folder while a test runs
    QString m_previousCwd;
    std::unique_ptr<ErrorTrailScope> m_trail; // what the error trail showed, per test

    static QString native(const QString &path) { return QDir::toNativeSeparators(QDir::cleanPath(path)); }
    QString below(const char *sub) const { return QDir(m_start).filePath(QString::fromLatin1(sub)); }

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

    void init() { m_trail = std::make_unique<ErrorTrailScope>(); }
    void cleanup() { m_trail.reset(); }

    void startFolderAndMoving()
    {
        frmFileDialog picker;
        picker.show();
        DirList *folders = picker.directories();
        // The drive list holds the machine's volumes and shows the one of the current folder.
        QCOMPARE(picker.drives()->currentData().toString(), QStorageInfo(m_start).rootPath());
        for (const QString &root : frmFileDialog::volumeRoots())
            QVERIFY2(picker.drives()->findData(root) >= 0, qPrintable(root));
        // The folder list is open on the start folder: its ancestors above, its folders below.
        QCOMPARE(folders->path(), native(m_start));
        for (const char *sub : {"Alpha", "Beta", "gamma"})
            QVERIFY2(entryFor(folders, below(sub)), sub);
        QVERIFY(entryFor(folders, m_tmp.path()));
        QVERIFY(!entryFor(folders, below("Alpha/Inner")));
        QCOMPARE(DirList::entryPath(folders->currentItem()), QDir::cleanPath(m_start));

        // A single click only highlights: the open folder is what "&Close" takes.
        QListWidgetItem *beta = entryFor(folders, below("Beta"));
        QTest::mouseClick(folders->viewport(), Qt::LeftButton, {}, folders->visualItemRect(beta).center());
        QCOMPARE(folders->currentItem(), beta);
        QCOMPARE(folders->path(), native(m_start));

        // Down into Alpha, then Inner (only the chain of folders shows), back up by an ancestor.
        open(folders, entryFor(folders, below("Alpha")));
        open(folders, entryFor(folders, below("Alpha/Inner")));
        QCOMPARE(folders->path(), native(below("Alpha/Inner")));
        QCOMPARE(folders->count(), QDir::cleanPath(m_start).count(QLatin1Char('/')) + 3);
        open(folders, entryFor(folders, m_start));
        QCOMPARE(folders->path(), native(m_start));

        // Keyboard: Enter opens the current entry.
        folders->setCurrentItem(entryFor(folders, below("gamma")));
        QTest::keyClick(folders, Qt::Key_Return);
        QTest::mouseClick(picker.closeButton(), Qt::LeftButton);
        QCOMPARE(picker.chosenPath(), std::optional<QString>(native(below("gamma"))));
        QVERIFY(!picker.isVisible());

        // A folder that vanished under the list is an error, and the list stays where it was.
        frmFileDialog again;
        QListWidgetItem *gone = entryFor(again.directories(), below("Beta"));
        QVERIFY(QDir(below("Beta")).removeRecursively());
        QVERIFY(!again.Dir1_Open(gone));
        QCOMPARE(m_trail->shown.size(), 1);
        QVERIFY(m_trail->shown.first().contains(QStringLiteral("frmFileDialog.Dir1_Change")));
        QCOMPARE(again.directories()->path(), native(m_start));
        QVERIFY(QDir().mkpath(below("Beta")));
    }

    void unreadableDrive()
    {
        frmFileDialog picker;
        picker.show();
        QComboBox *drives = picker.drives();
        const int home = drives->currentIndex();
        drives->addItem(QStringLiteral("Z:\\"), m_tmp.filePath(QStringLiteral("no-medium/")));

        // Choosing it shows the error window; the folder list keeps its folder.
        drives->setFocus();
        QTest::keyClick(drives, Qt::Key_End);
        QCOMPARE(drives->currentText(), QStringLiteral("Z:\\"));
        QCOMPARE(m_trail->shown.size(), 1);
        for (const char *part : {"Device unavailable", "frmFileDialog.Drive1_Change", "Error Number: 68 "})
            QVERIFY2(m_trail->shown.first().contains(QLatin1String(part)), qPrintable(m_trail->shown.first()));
        QCOMPARE(picker.directories()->path(), native(m_start));
        QVERIFY(picker.isVisible());

        // Still usable: back on the good drive the list opens at its root, and "&Close" works.
        drives->setCurrentIndex(home);
        const QString root = drives->currentData().toString();
        QCOMPARE(picker.directories()->path(), native(root));
        const QString firstStep = QDir(root).relativeFilePath(m_tmp.path()).section(QLatin1Char('/'), 0, 0);
        open(picker.directories(), entryFor(picker.directories(), QDir(root).absoluteFilePath(firstStep)));
        const QString opened = picker.directories()->path();
        QVERIFY(opened != native(root));
        QTest::mouseClick(picker.closeButton(), Qt::LeftButton);
        QCOMPARE(picker.chosenPath(), std::optional<QString>(opened));
        QCOMPARE(m_trail->shown.size(), 1);
    }

    // "&Select Destination" of the main window (the handler the button runs; the destination
    // does not depend on a sign-in).
    void fromTheMainWindow()
    {
        const ScriptedDialogsScope scripted;
        FrmSendtofolder window;
        window.show();
        auto *status = window.findChild<QLineEdit *>(QStringLiteral("txtProg"));
        auto pick = [&](std::function<void(frmFileDialog &)> driver) {
            Dialogs::setNextAnswers({Answer::drive(std::move(driver))});
            QVERIFY(window.cmdDestination_Click());
        };

        // Closed through its close box before anything was chosen: the status names nothing.
        pick([](frmFileDialog &picker) { picker.close(); });
        QCOMPARE(window.signIn().DestinationPath, QString());
        QCOMPARE(status->text(), QStringLiteral(" Destination path:  "));

        // "&Close" at once: the start folder.
        pick([](frmFileDialog &picker) { picker.closeButton()->click(); });
        QCOMPARE(window.signIn().DestinationPath, native(m_start));
        QCOMPARE(status->text(), QStringLiteral(" Destination path:  ") + native(m_start));

        // Moving elsewhere and leaving by the close box keeps the previous destination.
        pick([this](frmFileDialog &picker) {
            open(picker.directories(), entryFor(picker.directories(), below("Beta")));
            picker.close();
        });
        QCOMPARE(window.signIn().DestinationPath, native(m_start));
        QCOMPARE(status->text(), QStringLiteral(" Destination path:  ") + native(m_start));
        QCOMPARE(Dialogs::pendingAnswers(), 0);
        QVERIFY(m_trail->shown.isEmpty());
    }
};

QTEST_MAIN(TestPicker)
#include "test_picker.moc"
