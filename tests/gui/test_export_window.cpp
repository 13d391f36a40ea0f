// The export end to end through the real window, offscreen: signed in with the keyboard, folders
// opened and ticked with the mouse in the tree view, the destination chosen through the picker,
// the question confirmed; the written tree is then compared with the repository, and a run with
// failures shows its log through the shell.

#include "app/dialogs.h"
#include "app/foldertreeview.h"
#include "app/frmsendtofolder.h"
#include "errors/hunterr.h"
#include "exportcheck.h"
#include "testsupport.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFrame>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using Dialogs::Answer;

class TestExportWindow : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    QString m_demo;
    QString m_documents;
    QStringList m_errors;
    std::unique_ptr<FrmSendtofolder> m_w;
    int m_destinations = 0;

    template <class T>
    T *child(const char *name) const
    {
        T *found = m_w->findChild<T *>(QString::fromLatin1(name));
        if (!found)
            qFatal("no control named %s", name);
        return found;
    }

    QString freshDestination()
    {
        const QString dir = m_tmp.filePath(QStringLiteral("out%1").arg(++m_destinations));
        QDir().mkpath(dir);
        return dir;
    }

    void signInTo(const QString &database)
    {
        auto *password = child<QLineEdit>("TxtLoginPsw");
        password->setFocus(Qt::MouseFocusReason);
        QTest::keyClicks(password, QStringLiteral("brimex"));
        QTest::mouseClick(child<QPushButton>("cmdUserLogin"), Qt::LeftButton);
        QCOMPARE(m_w->currentScreen(), child<QWidget>("frameConnectDb"));

        child<QLineEdit>("txServerName")->setText(m_demo);
        child<QLineEdit>("txtUserName")->setText(QStringLiteral("demo"));
        auto *pw = child<QLineEdit>("txtPassword");
        pw->setFocus(Qt::MouseFocusReason);
        QTest::keyClick(pw, Qt::Key_Tab); // into the database list, which fills it
        auto *list = child<QComboBox>("cboDBName");
        QCOMPARE(QApplication::focusWidget(), list);
        for (int i = 0; i < list->count() && list->currentText() != database; ++i)
            QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(list->currentText(), database);
        QTest::mouseClick(child<QPushButton>("cmdlogin"), Qt::LeftButton);
        QCOMPARE(m_w->currentScreen(), child<QWidget>("frameSelectFolder"));
    }

    FolderTree::Node *node(int id) const { return m_w->folderTree().find(QStringLiteral("Fold%1").arg(id)); }

    // A person's click on the node's label, which reloads its children.
    void clickNode(int id)
    {
        FolderTree::Node *n = node(id);
        QVERIFY(n);
        FolderTreeView *view = m_w->treeView();
        view->scrollTo(m_w->folderTree().indexOf(n));
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->rowRect(n).center());
        QVERIFY(node(id));
        QVERIFY(node(id)->expanded);
    }

    // A person's click in the node's tick box.
    void tickNode(int id)
    {
        FolderTree::Node *n = node(id);
        QVERIFY(n);
        FolderTreeView *view = m_w->treeView();
        view->scrollTo(m_w->folderTree().indexOf(n));
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->checkBoxRect(n).center());
        QVERIFY2(n->checked, qPrintable(n->text));
    }

    void chooseDestination(const QString &dest)
    {
        Dialogs::setNextAnswers({Answer::path(dest)});
        QTest::mouseClick(child<QPushButton>("cmdDestination"), Qt::LeftButton);
        QCOMPARE(QDir::fromNativeSeparators(m_w->signIn().DestinationPath), dest);
    }

    // "Start &Copy", OK to the question; returns the texts of the boxes shown.
    QStringList startCopy()
    {
        Dialogs::clearRecords();
        Dialogs::setNextAnswers({Answer::button(QMessageBox::Ok)});
        QTest::mouseClick(child<QPushButton>("cmdStart"), Qt::LeftButton);
        return Dialogs::shownTexts();
    }

    QString question() const
    {
        return QStringLiteral("You have selected \"") + m_w->signIn().DestinationPath
               + QStringLiteral("\" as destination folder, do you want to continue?...");
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        const QString home = m_tmp.filePath(QStringLiteral("home"));
        QDir().mkpath(home);
        qputenv("HOME", QFile::encodeName(home));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/.config")));
        m_documents = home + QStringLiteral("/Documents"); // made by the first log line
        QString error;
        m_demo = writeDemo(m_tmp.path(), &error);
        QVERIFY2(!m_demo.isEmpty(), qPrintable(error));
    }

    void init()
    {
        Dialogs::setScripted(true);
        m_errors.clear();
        HuntERR::reset();
        HuntERR::setShower([this](const QString &text) { m_errors << text; });
        m_w = std::make_unique<FrmSendtofolder>();
        m_w->resize(640, 720);
        m_w->show();
        m_w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_w.get()));
    }

    void cleanup()
    {
        m_w.reset();
        Dialogs::setScripted(false);
    }

    void liveAndArchiveExports()
    {
        signInTo(QStringLiteral("Acme"));
        clickNode(1);
        clickNode(14); // Projects: Plans becomes a node of its own
        tickNode(14);
        QVERIFY(node(25)->checked); // the tick went down to the loaded child
        tickNode(7);               // Docs
        tickNode(15);              // Q1: Plans/Drafts
        tickNode(9);               // Empty Folder
        QVERIFY(!node(8)->checked); // Docs 2006 is not below Docs

        const QString dest = freshDestination();
        chooseDestination(dest);
        const QDateTime start = QDateTime::currentDateTime();
        QCOMPARE(startCopy(), (QStringList{question(), QStringLiteral("Process completed successfully")}));
        QVERIFY(Dialogs::openedLogs().isEmpty()); // nothing failed, nothing to show
        QVERIFY(child<QFrame>("FrameButton")->isEnabled());
        QCOMPARE(child<QLineEdit>("txtProg")->text(), QString());
        QVERIFY(m_errors.isEmpty());

        ExpectedTree expected;
        {
            RepositoryReader reader(m_demo, QStringLiteral("Acme"));
            QVERIFY(reader.ok());
            expected.replace(QStringLiteral("Projects"));
            reader.addDocuments(14, QStringLiteral("Projects"), expected);
            reader.addSubtree(25, QStringLiteral("Projects/Plans"), expected);
            reader.addSubtree(7, QStringLiteral("Docs"), expected);
            reader.addSubtree(15, QStringLiteral("Q1  Plans Drafts"), expected);
            reader.addSubtree(9, QStringLiteral("Empty Folder"), expected);
        }
        compareWithRepository(dest, expected, start);
        if (QTest::currentTestFailed())
            return;

        // Back to the sign-in screen and into the archive.
        QTest::mouseClick(child<QPushButton>("cmdBack"), Qt::LeftButton);
        auto *list = child<QComboBox>("cboDBName");
        list->setFocus(Qt::MouseFocusReason);
        for (int i = 0; i < list->count() && list->currentText() != QLatin1String("AcmeArchive"); ++i)
            QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(list->currentText(), QStringLiteral("AcmeArchive"));
        QTest::mouseClick(child<QPushButton>("cmdlogin"), Qt::LeftButton);
        QCOMPARE(m_w->currentScreen(), child<QWidget>("frameSelectFolder"));
        clickNode(1);
        tickNode(20); // Archive 2010
        tickNode(10); // Finance

        const QString archiveDest = freshDestination();
        chooseDestination(archiveDest);
        const QDateTime archiveStart = QDateTime::currentDateTime();
        QCOMPARE(startCopy().last(), QStringLiteral("Process completed successfully"));
        QVERIFY(Dialogs::openedLogs().isEmpty());
        ExpectedTree archived;
        {
            RepositoryReader reader(m_demo, QStringLiteral("Acme"), QStringLiteral("AcmeArchive"));
            QVERIFY(reader.ok());
            reader.addSubtree(20, QStringLiteral("Archive 2010"), archived);
            reader.addSubtree(10, QStringLiteral("Finance"), archived);
        }
        compareWithRepository(archiveDest, archived, archiveStart);
        QVERIFY(m_errors.isEmpty());
    }

    void failuresShowTheLog()
    {
        signInTo(QStringLiteral("Acme"));
        clickNode(1);
        tickNode(17); // Templates: a file stands where its directory must go
        tickNode(18); // Training: written all the same

        const QString dest = freshDestination();
        {
            QFile blocker(dest + QStringLiteral("/Templates"));
            QVERIFY(blocker.open(QIODevice::WriteOnly));
        }
        chooseDestination(dest);
        QDir(m_documents).removeRecursively();
        QCOMPARE(startCopy(), (QStringList{question(), QStringLiteral("Process completed successfully")}));
        QVERIFY(child<QFrame>("FrameButton")->isEnabled());
        QVERIFY(m_errors.isEmpty()); // a failed document is never a message of its own

        const QString logName = m_w->exporter().ExportLogName.mid(1);
        QVERIFY(logName.startsWith(QLatin1String("zarnivo Parcelwise Log ")));
        const QString logPath = m_documents + QLatin1Char('/') + logName;
        QCOMPARE(Dialogs::openedLogs(), QStringList{QDir::toNativeSeparators(logPath)});
        QVERIFY(!m_w->exporter().LogWritten);

        QFile log(logPath);
        QVERIFY(log.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromLocal8Bit(log.readAll()),
                 QStringLiteral("Folder ID: 17 , Folder Name: Templates , Folder Location: Templates\r\n"
                                "File ID: 1045 , File Name: Letter template , File Location: Templates\r\n"
                                "File ID: 1046 , File Name: Résumé Müller , File Location: Templates\r\n"));

        QVERIFY(QFile::exists(dest + QStringLiteral("/Training/Course outline.pdf")));
        QCOMPARE(QFileInfo(dest + QStringLiteral("/Templates")).size(), qint64(0));
    }
};

QTEST_MAIN(TestExportWindow)
#include "test_export_window.moc"
