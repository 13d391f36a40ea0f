// The error and support windows as the person meets them: a real failing handler opens the real
// window (offscreen), its buttons are clicked, its text and the clipboard are read back.

#include "errors/hunterr.h"
#include "errors/windows/fdmsshowerror.h"
#include "errors/windows/fdmssupportinfo.h"

#include <QApplication>
#include <QClipboard>
#include <QFrame>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QToolButton>

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
        ErrorWindows::setModalHook({});
    }

    void cleanup() { ErrorWindows::setModalHook({}); }

    void controlsCaptionsAndTooltips()
    {
        FDmsShowError window;
        QCOMPARE(window.windowTitle(), QStringLiteral("zarnivo - Message"));
        QVERIFY(window.findChild<QFrame *>(QStringLiteral("panButton")));
        QVERIFY(window.findChild<QFrame *>(QStringLiteral("panControl")));
        const struct {
            const char *button, *label, *caption, *tip, *keys;
        } buttons[] = {
            {"btnCopy", "labCopy", "Copy", "Copy message into clipboard- Short Cut Key [Alt+P].", "Alt+P"},
            {"cmdInfo", "Label1", "Support Info.", "Click to view support information- Short Cut Key [Alt+S].", "Alt+S"},
            {"btnCancel", "labClose", "Close", "Click to close window - Short Cut Key [Alt+C].", "Alt+C"},
        };
        for (const auto &b : buttons) {
            auto *button = window.findChild<QToolButton *>(QLatin1String(b.button));
            QVERIFY2(button, b.button);
            QCOMPARE(button->toolTip(), QLatin1String(b.tip));
            QCOMPARE(button->shortcut(), QKeySequence(QLatin1String(b.keys)));
            QVERIFY(!button->icon().isNull());
            auto *label = window.findChild<QLabel *>(QLatin1String(b.label));
            QVERIFY2(label, b.label);
            QCOMPARE(label->text(), QLatin1String(b.caption));
        }
        auto *report = window.findChild<QPlainTextEdit *>(QStringLiteral("tbxErrorReport"));
        QVERIFY(report);
        QVERIFY(report->isReadOnly());
        QVERIFY(report->font().fixedPitch() || QFontInfo(report->font()).fixedPitch());
        QVERIFY(window.width() >= 700 && window.height() >= 400);
        QVERIFY(window.isSizeGripEnabled());

        FDmsSupportInfo info;
        QCOMPARE(info.windowTitle(), QStringLiteral("Support Information"));
        QVERIFY(info.findChild<QFrame *>(QStringLiteral("panButton")));
        QVERIFY(info.findChild<QFrame *>(QStringLiteral("panControl")));
        auto *cancel = info.findChild<QToolButton *>(QStringLiteral("cmdCancel"));
        QVERIFY(cancel);
        QCOMPARE(cancel->toolTip(), QStringLiteral("Click to close - Short Cut Key [Alt+C]."));
        QCOMPARE(info.findChild<QLabel *>(QStringLiteral("lblCancel"))->text(), QStringLiteral("Close"));
        auto *message = info.findChild<QPlainTextEdit *>(QStringLiteral("txtMessage"));
        QVERIFY(message);
        QCOMPARE(message->toPlainText(), QString());
    }

    void escapedBreaksCopyAndClose()
    {
        QString seen;
        bool infoEnabled = true;
        QString shownWhileOpen = QStringLiteral("unset");
        int blocks = 0;
        QString clipboard;
        bool closed = false;
        ErrorWindows::setModalHook([&](QDialog &dialog) {
            auto *window = qobject_cast<FDmsShowError *>(&dialog);
            QVERIFY(window);
            ++m_windows;
            seen = window->reportText();
            blocks = window->tbxErrorReport()->blockCount();
            infoEnabled = window->cmdInfo()->isEnabled();
            shownWhileOpen = lastShownMessage();
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
        QCOMPARE(shownWhileOpen, QString());
        QCOMPARE(clipboard, seen + QStringLiteral("\r\n\r\n\r\n"));
        QVERIFY(closed);
        QVERIFY(!FDmsShowError::openInstance());

        // A fault shows its full report once.
        m_windows = 0;
        failWith(ERR_GENERAL, QStringLiteral("Path not found"));
        QCOMPARE(m_windows, 1);
        QVERIFY(seen.startsWith(QStringLiteral("  Error Description: Path not found \r\n")));
        QCOMPARE(seen.count(QStringLiteral("  Call Stack: ")), 2);
        QVERIFY(clipboard.endsWith(QStringLiteral("-\r\n   \r\n\r\n\r\n\r\n")));

        // A quiet user message opens nothing.
        m_windows = 0;
        failWith(qint32(0x80041070u), QStringLiteral("quiet"));
        QCOMPARE(m_windows, 0);
    }

    void oneWindowAtATimeAndSupportInfo()
    {
        QString textAfter;
        QString supportText = QStringLiteral("unset");
        ErrorWindows::setModalHook([&](QDialog &dialog) {
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
        setStepMode(true);
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
        setStepMode(false);
    }
};

QTEST_MAIN(TestErrorWindows)
#include "test_errorwindows.moc"
