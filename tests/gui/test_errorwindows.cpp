// The error and support windows as the person meets them: a real failing handler opens the real
// window (offscreen), its buttons are clicked, its text and the clipboard are read back.

#include "errors/hunterr.h"
#include "app/fdmsshowerror.h"
#include "app/fdmssupportinfo.h"
#include "windowharness.h"

#include <QApplication>
#include <QClipboard>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>

using app::FDmsShowError;
using app::FDmsSupportInfo;
using app::installErrorWindow;

using namespace HuntERR;

class TestErrorWindows : public QObject {
    Q_OBJECT

private:
    int m_windows = 0;

    static void failWith(qint32 number, const QString &description)
    {
        handler(QStringLiteral("FrmSendtofolder.cmdCopy_Click"), [&] {
            inner(QStringLiteral("modExport.walk"), [&] { raise(number, description, QStringLiteral("modExport.walk")); });
        });
    }

private slots:
    void init()
    {
        reset();
        setStepMode(false);
        installErrorWindow();
        m_windows = 0;
    }

    void escapedBreaksCopyAndClose()
    {
        QString seen;
        bool infoEnabled = true;
        int blocks = 0;
        QString clipboard;
        bool closed = false;
        const ModalHookScope hook([&](QDialog &dialog) {
            auto *window = qobject_cast<FDmsShowError *>(&dialog);
            QVERIFY(window);
            ++m_windows;
            seen = window->reportText();
            blocks = window->tbxErrorReport()->blockCount();
            infoEnabled = window->cmdInfo()->isEnabled();
            QGuiApplication::clipboard()->setText(QStringLiteral("stale"));
            QTest::mouseClick(window->btnCopy(), Qt::LeftButton);
            clipboard = QGuiApplication::clipboard()->text();
            QTest::mouseClick(window->btnCancel(), Qt::LeftButton);
            closed = !window->isVisible() && window->result() == QDialog::Rejected;
        });

        // A user message travels bare; its escaped breaks become three real lines.
        failWith(qint32(0x80041066u), QStringLiteral("First line\\N\\nSecond line\\nThird line"));
        QCOMPARE(m_windows, 1);
        QCOMPARE(seen, QStringLiteral("First line\r\nSecond line\r\nThird line"));
        QCOMPARE(blocks, 3);
        QVERIFY(!infoEnabled);
        QCOMPARE(clipboard, seen + QStringLiteral("\r\n\r\n\r\n"));
        QVERIFY(closed);
        QVERIFY(!FDmsShowError::openInstance());

        // A fault shows its full report once; the copy again ends in three line breaks.
        failWith(ERR_GENERAL, QStringLiteral("Path not found"));
        QCOMPARE(m_windows, 2);
        QVERIFY(seen.startsWith(QStringLiteral("  Error Description: Path not found \r\n")));
        QCOMPARE(clipboard, seen + QStringLiteral("\r\n\r\n\r\n"));
    }

    void oneWindowAtATimeAndSupportInfo()
    {
        QString textAfter;
        QString supportText = QStringLiteral("unset");
        const ModalHookScope hook([&](QDialog &dialog) {
            ++m_windows;
            if (auto *info = qobject_cast<FDmsSupportInfo *>(&dialog)) {
                supportText = info->txtMessage()->toPlainText();
                QTest::mouseClick(info->cmdCancel(), Qt::LeftButton);
                QVERIFY(!info->isVisible());
                return;
            }
            auto *window = qobject_cast<FDmsShowError *>(&dialog);
            QVERIFY(window);
            QCOMPARE(FDmsShowError::openInstance(), window);
            // An error while the window is open goes into the same window.
            failWith(ERR_GENERAL, QStringLiteral("second\\nerror"));
            textAfter = window->reportText();
            // Support information is reachable in code even though the button stays disabled.
            window->cmdInfo_Click();
            QVERIFY(window->isVisible());
        });
        QGuiApplication::setOverrideCursor(Qt::WaitCursor);
        failWith(ERR_GENERAL, QStringLiteral("first"));
        QCOMPARE(m_windows, 2); // the error window and the support window, no second error window
        QVERIFY(textAfter.startsWith(QStringLiteral("  Error Description: second\r\nerror \r\n")));
        QCOMPARE(supportText, QString());
        QVERIFY(!QGuiApplication::overrideCursor()); // the exit step put the arrow back
    }

    void stepModePromptIsACriticalQuestion()
    {
        const StepModeScope stepping(true);
        QString title, text;
        bool critical = false;
        QTimer::singleShot(0, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            QVERIFY(box);
            title = box->windowTitle();
            text = box->text();
            critical = box->icon() == QMessageBox::Critical;
            QVERIFY(box->button(QMessageBox::No) && box->button(QMessageBox::Cancel));
            box->button(QMessageBox::Yes)->click();
        });
        int runs = 0;
        QVERIFY(handler(QStringLiteral("Frm.cmdRetry_Click"), [&] {
            if (++runs == 1)
                raise(ERR_GENERAL, QStringLiteral("locked"));
        }));
        QCOMPARE(runs, 2);
        QCOMPARE(title, QStringLiteral("Stopped on Error"));
        QVERIFY(text.startsWith(QStringLiteral("Error: locked\r\nDo you want to retry the operation in step mode?")));
        QVERIFY(critical);
    }
};

QTEST_MAIN(TestErrorWindows)
#include "test_errorwindows.moc"
