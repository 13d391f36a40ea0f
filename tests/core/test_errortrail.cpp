// The error trail end to end: real procedures nested under a real handler, the report they
// produce, the numbers that are shown or kept quiet, step mode, and the solution version read
// from a real system-scope settings file.

#include "errors/hunterr.h"
#include "testsupport.h"
#include "scopes.h"
#include "errors/report.h"
#include "errors/settings.h"

#include <QObject>
#include <QSettings>
#include <QSysInfo>

#include <new>
#include <stdexcept>

using namespace HuntERR;

namespace {

const QString CrLf = QStringLiteral("\r\n");

// A connection whose state, error list and rollback outcome the test sets.
class FakeConnection : public DbObject {
public:
    int stateValue = 1;
    QStringList errors;
    bool failRollback = false;
    int rollbacks = 0;

    QString typeName() const override { return QStringLiteral("Connection"); }
    int state() const override { return stateValue; }
    QStringList errorDescriptions() const override { return errors; }
    void rollbackTrans() override
    {
        ++rollbacks;
        if (failRollback)
            raise(ERR_GENERAL, QStringLiteral("No transaction is active."), QStringLiteral("Connection"));
    }
};

std::exception_ptr failure(qint32 number, const QString &description)
{
    ErrInfo info;
    info.number = number;
    info.description = description;
    return std::make_exception_ptr(Error(info));
}

QStringList callStackLines(const QString &report)
{
    QStringList lines;
    for (const QString &line : report.split(CrLf))
        if (line.startsWith(QLatin1String("  Call Stack: ")))
            lines << line;
    return lines;
}

// Three procedures of a module, one calling the next, the innermost failing.
int level3(qint32 number, const QString &description)
{
    return inner(QStringLiteral("modTree.level3(strLong)"),
                 [&]() -> int { raise(number, description, QStringLiteral("modTree.origin")); },
                 NamedValues{QStringLiteral("strLong"), {QString(50, QLatin1Char('x'))}});
}

int level2(qint32 number, const QString &description)
{
    return inner(QStringLiteral("modTree.level2(lngId)"), [&] { return level3(number, description) + 1; },
                 NamedValues{QStringLiteral("lngId"), {5}});
}

QStringList g_shown;

// Runs one failing event handler three procedures above the failure; what it showed.
QStringList failInHandler(qint32 number, const QString &description)
{
    g_shown.clear();
    const bool ok = handler(QStringLiteral("FrmSendtofolder.tvDefaultRoot_NodeClick(Node)"), [&] {
        inner(QStringLiteral("modTree.level1"), [&] { return level2(number, description) + 1; });
    });
    if (ok)
        qWarning("the handler reported success for a failing body");
    return g_shown;
}

} // namespace

class TestErrorTrail : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_settingsDir;

private slots:
    void initTestCase()
    {
        QVERIFY(m_settingsDir.isValid());
        QSettings::setPath(QSettings::IniFormat, QSettings::SystemScope, m_settingsDir.path());
#ifndef PARCELWISE_STEP_MODE
        // The environment switch, read once at the first question.
        qputenv("PARCELWISE_STEP_MODE", "1");
        QVERIFY(stepMode());
        qunsetenv("PARCELWISE_STEP_MODE");
#endif
    }

    void init()
    {
        reset();
        forgetSolutionVer();
        setStepMode(false);
        setStopPrompt({});
        setShower([](const QString &message) { g_shown << message; });
        g_shown.clear();
    }

    void numberLine_data()
    {
        QTest::addColumn<qint32>("number");
        QTest::addColumn<QString>("line");
        QTest::newRow("ERR_GENERAL") << ERR_GENERAL
                                     << "-2147216306 = &H8004144E = vbObjectError + 5198 = ERRMAP_APP_FIRST + 0 = ERR_GENERAL";
        QTest::newRow("low app number") << vbObjectError + 5
                                        << "-2147221499 = &H80040005 = vbObjectError + 5 = ERRMAP_APP_FIRST - 5193 ";
        QTest::newRow("below the base") << qint32(0x80000005u)
                                        << "-2147483643 = &H80000005 = vbObjectError - 262139 = ERRMAP_APP_FIRST - 267337 ";
        QTest::newRow("system number") << ERR_PATH_NOT_FOUND
                                       << "76 = &H4C = vbObjectError + 2147221580 = ERRMAP_APP_FIRST + 2147216382 ";
    }

    void numberLine()
    {
        QFETCH(qint32, number);
        QFETCH(QString, line);
        const QStringList shown = failInHandler(number, QStringLiteral("failure"));
        QCOMPARE(shown.size(), 1);
        QVERIFY2(shown.first().contains(CrLf + "  Error Number: " + line + CrLf), qPrintable(shown.first()));
    }

    void threeDeepGivesOneReport()
    {
        // A "%" or a placeholder name inside a value is copied as it stands.
        const QString tricky = QStringLiteral("100% done, %Descr% and %ErrNum% and %nl% stay");
        const QStringList shown = failInHandler(vbObjectError + 77, tricky);
        QCOMPARE(shown.size(), 1);
        QString report = shown.first();
        report.replace(QRegularExpression(QStringLiteral("Date-Time: '\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d'")),
                       QStringLiteral("Date-Time: '#'"));
        // One call-stack entry per procedure on the way up, padded with dashes to 100 columns, then
        // a line of three blanks; a held-back long value follows its entry.
        const auto entry = [](const QString &call) {
            return "  Call Stack: " + call + " " + QString(85 - call.size(), u'-') + "\r\n   \r\n";
        };
        QVERIFY(!dataAccessVersion().isEmpty());
        QCOMPARE(report, "  Error Description: " + tricky + " \r\n"
                         "  Error Number: -2147221427 = &H8004004D = vbObjectError + 77 = ERRMAP_APP_FIRST - 5121 \r\n"
                         "  Date-Time: '#'  \r\n  \r\n"
                         "  Computer Name: '" + QSysInfo::machineHostName() + "' \r\n"
                         "  Solution Version: '" + prtySolutionVer() + "' \r\n"
                         "  Application Version: '6.0.0'  \r\n"
                         "  ADO Version: '" + dataAccessVersion() + "' \r\n"
                         "  Source: modTree.origin \r\n"
                         "  Method: modTree.level3(strLong) \r\n  \r\n"
                     + entry("modTree.level3(strLong)(strLong={Text})") + "    Value Of strLong:\r\n'"
                     + QString(50, QLatin1Char('x')) + "'\r\n" + entry("modTree.level2(lngId)(lngId=5)")
                     + entry("modTree.level1()") + entry("FrmSendtofolder.tvDefaultRoot_NodeClick(Node)()"));
        // The trail is left clean for the next error.
        QVERIFY(!isPreserved());
        QCOMPARE(current().number, 0);

        // Exceptions from outside the trail become trail errors.
        g_shown.clear();
        handler(QStringLiteral("Frm.cmdStd_Click"), [] {
            inner(QStringLiteral("mod.std"), [] { throw std::runtime_error("disk on fire"); });
        });
        QVERIFY(g_shown.value(0).startsWith(QStringLiteral("  Error Description: disk on fire ")));
        QVERIFY(g_shown.value(0).contains(QStringLiteral("= ERR_GENERAL\r\n")));
        setCurrent(std::make_exception_ptr(std::bad_alloc()));
        QCOMPARE(current().number, ERR_OUT_OF_MEMORY);

        // A handler that lost its error still reports something sensible.
        reset();
        g_shown.clear();
        ErrorIn(QStringLiteral("Frm.cmdLost_Click"), FlagsEventHandler);
        ErrHandlerExit();
        QVERIFY(g_shown.value(0).startsWith("  Error Description: ErrorIn: Error information was lost. To fix: call "
                                            "ErrPreserve before doing anything in error handler. "
                                            + CrLf));
    }

    void userMessagesAndQuietNumbers()
    {
        // The user-message numbers show their bare text.
        for (qint32 number : {qint32(0x80041065u), qint32(0x80041066u), qint32(0x80041067u)})
            QCOMPARE(failInHandler(number, QStringLiteral("Choose a folder.")), QStringList{QStringLiteral("Choose a folder.")});
        // The rest of the range shows nothing; just outside it on either side is a fault.
        QVERIFY(failInHandler(qint32(0x80041070u), QStringLiteral("quiet")).isEmpty());
        QVERIFY(failInHandler(USER_MESSAGE_LAST, QStringLiteral("quiet too")).isEmpty());
        QVERIFY(failInHandler(USER_MESSAGE_FIRST - 1, QStringLiteral("fault")).value(0).contains("Call Stack"));
        QVERIFY(failInHandler(ERRMAP_APP_FIRST, QStringLiteral("fault")).value(0).contains("Call Stack"));

        // The not-passed-on number stops at the first procedure: the caller goes on, nothing shown.
        g_shown.clear();
        int after = 0;
        QVERIFY(handler(QStringLiteral("Frm.cmdGo_Click"), [&] {
            const int value = inner(QStringLiteral("mod.cancel"), []() -> int {
                raise(ERR_NOT_PASSED_ON, QStringLiteral("cancelled"));
            });
            after = value + 1;
        }));
        QCOMPARE(after, 1);
        QVERIFY(g_shown.isEmpty());

        // A resumed statement records the failure and shows nothing.
        QVERIFY(!resume(QStringLiteral("modExport.writeDocument(lngDocId)"),
                        [] { raise(ERR_WRITE_FAILED, QStringLiteral("Write to file failed.")); }));
        QVERIFY(g_shown.isEmpty());
        QVERIFY(reportText().contains(QStringLiteral("  Call Stack: modExport.writeDocument(lngDocId)() -")));
        QVERIFY(!isPreserved());
    }

    void stepModeRetriesAndStops()
    {
        QStringList prompts;
        int answer = 6;
        setStopPrompt([&](const QString &title, const QString &text) {
            prompts << title + QLatin1Char('|') + text;
            return answer;
        });
        int runs = 0;
        const auto failOnce = [&] {
            if (++runs == 1)
                raise(ERR_GENERAL, QStringLiteral("boom"));
        };
        // Off: never asks, never retries.
        QVERIFY(!handler(QStringLiteral("Frm.cmdA_Click"), failOnce));
        QCOMPARE(runs, 1);
        QVERIFY(prompts.isEmpty());
        QCOMPARE(g_shown.size(), 1);

        // On, Yes: the failing body runs again and the second run succeeds.
        const StepModeScope stepping(true);
        g_shown.clear();
        runs = 0;
        QVERIFY(handler(QStringLiteral("Frm.cmdA_Click"), failOnce));
        QCOMPARE(runs, 2);
        QCOMPARE(prompts, QStringList{QStringLiteral("Stopped on Error|Error: boom\r\nDo you want to retry the operation "
                                                     "in step mode?\r\nClick YES to retry, NO to move to the caller, "
                                                     "CANCEL for no more stops")});
        QVERIFY(g_shown.isEmpty());
        // The export's statements that go on after a failure stop and retry the same way.
        runs = 0;
        QVERIFY(resume(QStringLiteral("FrmSendtofolder.CopyCheckedFolders"), failOnce));
        QCOMPARE(runs, 2);

        // On, No: the error moves to the caller, which asks again about the propagated report.
        prompts.clear();
        answer = 7;
        QVERIFY(!handler(QStringLiteral("Frm.cmdB_Click"), [] {
            inner(QStringLiteral("mod.b"), [] { raise(ERR_GENERAL, QStringLiteral("boom")); });
        }));
        QCOMPARE(prompts.size(), 2);
        QVERIFY(prompts[1].startsWith(QStringLiteral("Stopped on Error|Error:   Error Description: boom  (Propagated)\r\n")));
        QCOMPARE(g_shown.size(), 1);

        // On, Cancel: no later procedure asks for the same error; one report with every entry.
        prompts.clear();
        g_shown.clear();
        answer = 2;
        QVERIFY(!handler(QStringLiteral("Frm.cmdC_Click"), [] {
            inner(QStringLiteral("mod.c2"), [] {
                inner(QStringLiteral("mod.c1"), [] { raise(ERR_GENERAL, QStringLiteral("boom")); });
            });
        }));
        QCOMPARE(prompts.size(), 1);
        QCOMPARE(g_shown.size(), 1);
        QCOMPARE(callStackLines(g_shown.first()).size(), 3);
    }

    void connectionBlockAndRollback()
    {
        FakeConnection conn;
        conn.stateValue = 1 | 4;
        conn.errors = {QStringLiteral("Timeout expired"), QStringLiteral("Deadlock victim")};
        setCurrent(failure(ERR_GENERAL, QStringLiteral("query failed")));
        ErrPreserve();
        ErrorIn(QStringLiteral("modDb.query(strSql)"), FlagReport | FlagRollback,
                NamedValues{QStringLiteral("strSql"), {QStringLiteral("SELECT 1")}},
                NamedValues{QStringLiteral("cnDb,blnArchive"), {QVariant(), true}}, &conn);
        const QString report = reportText();
        QVERIFY(report.contains("  Method: modDb.query(strSql) \r\n  \r\n  ADO Info: \r\n    ADO Version:   "
                                + dataAccessVersion()
                                + "\r\n    DbObject:      Connection\r\n    Conn. State:   adStateOpen + "
                                  "adStateExecuting\r\n   \r\n   \r\n    Error:         Timeout expired\r\n"
                                  "    Error:         Deadlock victim\r\n  Call Stack: modDb.query(strSql)(strSql='SELECT "
                                  "1') -"));
        QVERIFY(report.endsWith(QStringLiteral("-\r\n   \r\n    Env: cnDb={Empty}, blnArchive=True\r\n")));
        QCOMPARE(conn.rollbacks, 1);
        QCOMPARE(lastRollbackNote(), QStringLiteral("Attempt to call RollbackTrans succeeded"));

        // A rollback that fails does not disturb the error being passed on.
        conn.failRollback = true;
        setCurrent(failure(ERR_GENERAL, QStringLiteral("original")));
        ErrPreserve();
        QString passedOn;
        try {
            ErrorIn(QStringLiteral("modDb.exec"), FlagsInner, {}, {}, &conn);
        } catch (const Error &e) {
            passedOn = e.description();
        }
        QVERIFY(passedOn.startsWith(QStringLiteral("  Error Description: original ")));
        QVERIFY(lastRollbackNote().startsWith(QStringLiteral("Attempt to call RollbackTrans failed with error 'No tr")));
    }

    void solutionVersionFromSettings()
    {
        // No file at all: empty version, no error, and the report shows two quotes.
        QCOMPARE(prtySolutionVer(), QString());
        QVERIFY(failInHandler(ERR_GENERAL, QStringLiteral("x")).value(0).contains("  Solution Version: '' \r\n"));
        {
            QSettings system(QSettings::IniFormat, QSettings::SystemScope, QStringLiteral("Zarnivo"),
                             QStringLiteral("zarnivo"));
            system.setValue(QStringLiteral("Installation/SolutionVersion"), "6.0.12" + QString(QChar(0)) + "junk");
            system.sync();
            QCOMPARE(system.status(), QSettings::NoError);
        }
        // The empty answer was not kept: the next read finds the value, cut at the NUL.
        QVERIFY(failInHandler(ERR_GENERAL, QStringLiteral("x")).value(0).contains("  Solution Version: '6.0.12' \r\n"));
        QCOMPARE(RegGetStringValue(REG_HKEY_LOCAL_MACHINE, InstallationKeyPath, QStringLiteral("Absent")), QString());
        {
            QSettings system(QSettings::IniFormat, QSettings::SystemScope, QStringLiteral("Zarnivo"),
                             QStringLiteral("zarnivo"));
            system.setValue(QStringLiteral("Installation/SolutionVersion"), QStringLiteral("7.1"));
        }
        // A found version is kept for the run.
        QCOMPARE(prtySolutionVer(), QStringLiteral("6.0.12"));
        forgetSolutionVer();
        QCOMPARE(prtySolutionVer(), QStringLiteral("7.1"));
    }
};

QTEST_GUILESS_MAIN(TestErrorTrail)
#include "test_errortrail.moc"
