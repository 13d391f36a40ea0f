// The error trail end to end: real procedures nested under a real handler, the report they
// produce, the numbers that are shown or kept quiet, step mode, and the solution version read
// from a real system-scope settings file.

#include "errors/hunterr.h"
#include "errors/report.h"
#include "errors/settings.h"

#include <QObject>
#include <QRegularExpression>
#include <QSettings>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTest>

#include <new>
#include <stdexcept>

using namespace HuntERR;

namespace {

const QString CrLf = QStringLiteral("\r\n");

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

std::exception_ptr failure(qint32 number, const QString &description, const QString &source = {})
{
    ErrInfo info;
    info.number = number;
    info.source = source;
    info.description = description;
    return std::make_exception_ptr(Error(info));
}

struct Unprintable {
    int x = 0;
};

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
    const QString longValue(50, QLatin1Char('x'));
    return inner(
        QStringLiteral("modTree.level3(strLong)"),
        [&]() -> int {
            raise(number, description, QStringLiteral("modTree.origin"));
        },
        NamedValues{QStringLiteral("strLong"), {longValue}});
}

int level2(qint32 number, const QString &description)
{
    return inner(
        QStringLiteral("modTree.level2(lngId)"), [&] { return level3(number, description) + 1; },
        NamedValues{QStringLiteral("lngId"), {5}});
}

int level1(qint32 number, const QString &description)
{
    return inner(QStringLiteral("modTree.level1"), [&] { return level2(number, description) + 1; });
}

} // namespace

class TestErrorTrail : public QObject {
    Q_OBJECT

private:
    QStringList m_shown;
    QTemporaryDir m_settingsDir;

    // Runs one failing event handler and hands back what it showed.
    QStringList failInHandler(qint32 number, const QString &description)
    {
        m_shown.clear();
        const bool ok = handler(QStringLiteral("FrmSendtofolder.tvDefaultRoot_NodeClick(Node)"),
                                [&] { level1(number, description); });
        if (ok)
            qWarning("the handler reported success for a failing body");
        return m_shown;
    }

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
        setShower([this](const QString &message) { m_shown << message; });
        m_shown.clear();
    }

    void reportNumbersAndLiteralText()
    {
        QStringList shown = failInHandler(ERR_GENERAL, QStringLiteral("general failure"));
        QCOMPARE(shown.size(), 1);
        const QString report = shown.first();
        QVERIFY(report.contains(CrLf + QStringLiteral("  Error Number: -2147216306 = &H8004144E = vbObjectError + 5198 "
                                                      "= ERRMAP_APP_FIRST + 0 = ERR_GENERAL")
                                + CrLf));
        QVERIFY(report.startsWith(QStringLiteral("  Error Description: general failure ") + CrLf));
        QVERIFY(QRegularExpression(QStringLiteral("\r\n  Date-Time: '\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d'  \r\n  \r\n"))
                    .match(report)
                    .hasMatch());
        QVERIFY(report.contains(QStringLiteral("  Computer Name: '") + QSysInfo::machineHostName() + QStringLiteral("' ")
                                + CrLf));
        QVERIFY(report.contains(QStringLiteral("  Application Version: '6.0.0'  ") + CrLf));
        QVERIFY(report.contains(QStringLiteral("  ADO Version: '") + dataAccessVersion() + QStringLiteral("' ") + CrLf));
        QVERIFY(!dataAccessVersion().isEmpty());
        QVERIFY(report.contains(QStringLiteral("  Source: modTree.origin ") + CrLf));
        // No database object given: no connection block.
        QVERIFY(!report.contains(QStringLiteral("ADO Info")));

        shown = failInHandler(vbObjectError + 5, QStringLiteral("five"));
        QVERIFY(shown.first().contains(QStringLiteral("  Error Number: -2147221499 = &H80040005 = vbObjectError + 5 "
                                                      "= ERRMAP_APP_FIRST - 5193 ")
                                       + CrLf));
        shown = failInHandler(qint32(0x80000005u), QStringLiteral("below the base"));
        QVERIFY(shown.first().contains(QStringLiteral("  Error Number: -2147483643 = &H80000005 = vbObjectError - 262139 "
                                                      "= ERRMAP_APP_FIRST - 267337 ")
                                       + CrLf));
        shown = failInHandler(ERR_PATH_NOT_FOUND, QStringLiteral("Path not found"));
        QVERIFY(shown.first().contains(QStringLiteral("  Error Number: 76 = &H4C = vbObjectError + 2147221580 ")));

        // A "%" or a placeholder name inside a value is copied as it stands.
        const QString tricky = QStringLiteral("100% done, %Descr% and %ErrNum% and %nl% stay");
        shown = failInHandler(ERR_GENERAL, tricky);
        QVERIFY(shown.first().startsWith(QStringLiteral("  Error Description: ") + tricky + QStringLiteral(" ") + CrLf));
        QCOMPARE(substitutePlaceholders(QStringLiteral("a %X% b %Y% 50%"),
                                         {{QStringLiteral("X"), QStringLiteral("%Y%")}, {QStringLiteral("Y"), QStringLiteral("y")}}),
                 QStringLiteral("a %Y% b y 50%"));
    }

    void failureThreeDeepShowsOneReport()
    {
        const QStringList shown = failInHandler(vbObjectError + 77, QStringLiteral("folder vanished"));
        QCOMPARE(shown.size(), 1);
        const QString report = shown.first();
        QVERIFY(report.contains(QStringLiteral("  Method: modTree.level3(strLong) ") + CrLf));
        QCOMPARE(report.count(QStringLiteral("  Error Description: ")), 1);

        const QStringList entries = callStackLines(report);
        QCOMPARE(entries.size(), 4);
        QVERIFY(entries[0].startsWith(QStringLiteral("  Call Stack: modTree.level3(strLong)(strLong={Text}) -")));
        QVERIFY(entries[1].startsWith(QStringLiteral("  Call Stack: modTree.level2(lngId)(lngId=5) -")));
        QVERIFY(entries[2].startsWith(QStringLiteral("  Call Stack: modTree.level1() -")));
        QVERIFY(entries[3].startsWith(QStringLiteral("  Call Stack: FrmSendtofolder.tvDefaultRoot_NodeClick(Node)() -")));
        for (const QString &line : entries) {
            QCOMPARE(line.size(), 100);
            QVERIFY(line.endsWith(QStringLiteral("--")));
        }
        // The held-back long value follows its entry's blank line, before the next entry.
        QVERIFY(report.contains(QStringLiteral("-\r\n   \r\n    Value Of strLong:\r\n'") + QString(50, QLatin1Char('x'))
                                + QStringLiteral("'\r\n  Call Stack: modTree.level2")));

        // The trail is left clean for the next error.
        QVERIFY(!isPreserved());
        QCOMPARE(current().number, 0);
        QVERIFY(lastShownMessage().isEmpty());

        // Non-trail exceptions become trail errors.
        m_shown.clear();
        handler(QStringLiteral("Frm.cmdStd_Click"), [] {
            inner(QStringLiteral("mod.std"), [] { throw std::runtime_error("disk on fire"); });
        });
        QCOMPARE(m_shown.size(), 1);
        QVERIFY(m_shown.first().startsWith(QStringLiteral("  Error Description: disk on fire ")));
        QVERIFY(m_shown.first().contains(QStringLiteral("= ERR_GENERAL\r\n")));
        setCurrent(std::make_exception_ptr(std::bad_alloc()));
        QCOMPARE(current().number, ERR_OUT_OF_MEMORY);
        QCOMPARE(current().description, QStringLiteral("Out of memory"));
        setCurrent(std::make_exception_ptr(42));
        QCOMPARE(current().number, ERR_GENERAL);
        QCOMPARE(current().description, QStringLiteral("Unknown error"));
    }

    void userMessagesAndQuietNumbers()
    {
        for (qint32 number : {qint32(0x80041065u), qint32(0x80041066u), qint32(0x80041067u)}) {
            const QStringList shown = failInHandler(number, QStringLiteral("Please choose a folder first."));
            QCOMPARE(shown, QStringList{QStringLiteral("Please choose a folder first.")});
            QCOMPARE(reportText(), QStringLiteral("Please choose a folder first."));
        }
        QVERIFY(failInHandler(qint32(0x80041070u), QStringLiteral("quiet")).isEmpty());
        QVERIFY(failInHandler(USER_MESSAGE_LAST, QStringLiteral("quiet too")).isEmpty());
        // Just outside the range on either side is a fault with a full report.
        QVERIFY(failInHandler(USER_MESSAGE_FIRST - 1, QStringLiteral("fault")).first().contains(QStringLiteral("Call Stack")));
        QVERIFY(failInHandler(ERRMAP_APP_FIRST, QStringLiteral("fault")).first().contains(QStringLiteral("Call Stack")));

        // The not-passed-on number stops at the first procedure, even with flag 1.
        setCurrent(failure(ERR_NOT_PASSED_ON, QStringLiteral("cancelled")));
        ErrPreserve();
        bool threw = false;
        try {
            ErrorIn(QStringLiteral("mod.cancel"), FlagsInner);
        } catch (const Error &) {
            threw = true;
        }
        QVERIFY(!threw);
        m_shown.clear();
        int after = 0;
        const bool ok = handler(QStringLiteral("Frm.cmdGo_Click"), [&] {
            const int value = inner(QStringLiteral("mod.cancel"), []() -> int { raise(ERR_NOT_PASSED_ON, QStringLiteral("cancelled")); });
            after = value + 1;
        });
        QVERIFY(ok);
        QCOMPARE(after, 1);
        QVERIFY(m_shown.isEmpty());

        // A resumed statement records the failure and shows nothing.
        QVERIFY(!resume(QStringLiteral("modExport.writeDocument(lngDocId)"), [] {
            raise(ERR_WRITE_FAILED, QStringLiteral("Write to file failed."));
        }));
        QVERIFY(m_shown.isEmpty());
        QVERIFY(reportText().contains(QStringLiteral("  Call Stack: modExport.writeDocument(lngDocId)() -")));
        QCOMPARE(current().number, 0);
        QVERIFY(!isPreserved());
    }

    void preserveAndLostError()
    {
        ErrInfo first{vbObjectError + 1, QStringLiteral("first.src"), QStringLiteral("first"), QStringLiteral("help.chm"),
                      QStringLiteral("12"), 30, 5};
        setCurrent(std::make_exception_ptr(Error(first)));
        ErrPreserve();
        setCurrent(failure(vbObjectError + 2, QStringLiteral("second"), QStringLiteral("second.src")));
        ErrPreserve();
        QVERIFY(isPreserved());
        QCOMPARE(preserved().number, vbObjectError + 1);
        QCOMPARE(preserved().description, QStringLiteral("first"));
        QCOMPARE(preserved().line, 30);
        QCOMPARE(preserved().lastDllError, 5);
        ErrRestore();
        QCOMPARE(current().number, vbObjectError + 1);
        QCOMPARE(current().source, QStringLiteral("first.src"));
        QCOMPARE(current().helpFile, QStringLiteral("help.chm"));
        QCOMPARE(current().helpContext, QStringLiteral("12"));

        // Nothing to preserve when there is no error.
        reset();
        ErrPreserve();
        QVERIFY(!isPreserved());

        // A handler that lost its error still reports something sensible.
        ErrorIn(QStringLiteral("Frm.cmdLost_Click"), FlagsEventHandler);
        ErrHandlerExit();
        QCOMPARE(m_shown.size(), 1);
        QVERIFY(m_shown.first().startsWith(
            QStringLiteral("  Error Description: ErrorIn: Error information was lost. To fix: call ErrPreserve before "
                           "doing anything in error handler. ")
            + CrLf));
        QVERIFY(m_shown.first().contains(QStringLiteral("= ERR_GENERAL\r\n")));
    }

    void stepModeRetriesAndStops()
    {
        QStringList prompts;
        int answer = 6;
        setStopPrompt([&](const QString &title, const QString &text) {
            prompts << title + QLatin1Char('|') + text;
            return answer;
        });

        // Off: never asks, never retries.
        int runs = 0;
        QVERIFY(!handler(QStringLiteral("Frm.cmdA_Click"), [&] {
            ++runs;
            raise(ERR_GENERAL, QStringLiteral("boom"));
        }));
        QCOMPARE(runs, 1);
        QVERIFY(prompts.isEmpty());
        QCOMPARE(m_shown.size(), 1);

        // On, Yes: the failing body runs again and the second run succeeds.
        setStepMode(true);
        m_shown.clear();
        runs = 0;
        QVERIFY(handler(QStringLiteral("Frm.cmdA_Click"), [&] {
            if (++runs == 1)
                raise(ERR_GENERAL, QStringLiteral("boom"));
        }));
        QCOMPARE(runs, 2);
        QCOMPARE(prompts, QStringList{QStringLiteral("Stopped on Error|Error: boom\r\nDo you want to retry the operation in "
                                                     "step mode?\r\nClick YES to retry, NO to move to the caller, CANCEL "
                                                     "for no more stops")});
        QVERIFY(m_shown.isEmpty());

        // On, No: the error moves to the caller, which asks again about the propagated report.
        prompts.clear();
        answer = 7;
        QVERIFY(!handler(QStringLiteral("Frm.cmdB_Click"), [] {
            inner(QStringLiteral("mod.b"), [] { raise(ERR_GENERAL, QStringLiteral("boom")); });
        }));
        QCOMPARE(prompts.size(), 2);
        QVERIFY(prompts[1].startsWith(QStringLiteral("Stopped on Error|Error:   Error Description: boom  (Propagated)\r\n")));
        QCOMPARE(m_shown.size(), 1);

        // On, Cancel: marked NoStop, no later handler asks for the same error.
        prompts.clear();
        m_shown.clear();
        answer = 2;
        QVERIFY(!handler(QStringLiteral("Frm.cmdC_Click"), [] {
            inner(QStringLiteral("mod.c2"), [] {
                inner(QStringLiteral("mod.c1"), [] { raise(ERR_GENERAL, QStringLiteral("boom")); });
            });
        }));
        QCOMPARE(prompts.size(), 1);
        QCOMPARE(m_shown.size(), 1);
        QCOMPARE(callStackLines(m_shown.first()).size(), 3);
    }

    void connectionBlockAndRollback()
    {
        FakeConnection conn;
        conn.stateValue = 1 | 4;
        conn.errors = {QStringLiteral("Timeout expired"), QStringLiteral("Deadlock victim")};
        setCurrent(failure(ERR_GENERAL, QStringLiteral("query failed"), QStringLiteral("modDb.query")));
        ErrPreserve();
        ErrorIn(QStringLiteral("modDb.query(strSql)"), FlagReport | FlagRollback, NamedValues{QStringLiteral("strSql"), {QStringLiteral("SELECT 1")}},
                NamedValues{QStringLiteral("cnDb,blnArchive"), {QVariant(), true}}, &conn);
        const QString report = reportText();
        QVERIFY(report.contains(QStringLiteral("  Method: modDb.query(strSql) \r\n  \r\n  ADO Info: \r\n    ADO Version:   ")
                                + dataAccessVersion()
                                + QStringLiteral("\r\n    DbObject:      Connection\r\n    Conn. State:   adStateOpen + "
                                                 "adStateExecuting\r\n   \r\n   \r\n    Error:         Timeout expired\r\n"
                                                 "    Error:         Deadlock victim\r\n  Call Stack: modDb.query(strSql)(strSql='SELECT 1') -")));
        QVERIFY(report.endsWith(QStringLiteral("-\r\n   \r\n    Env: cnDb={Empty}, blnArchive=True\r\n")));
        QCOMPARE(conn.rollbacks, 1);
        QCOMPARE(lastRollbackNote(), QStringLiteral("Attempt to call RollbackTrans succeeded"));

        conn.failRollback = true;
        QCOMPARE(transactionNote(&conn), QStringLiteral("Attempt to call RollbackTrans failed with error 'No transaction is active.'"));
        conn.stateValue = 0;
        QCOMPARE(transactionNote(&conn), QStringLiteral("Could not call RollbackTrans: Connection is closed "));
        QCOMPARE(conn.rollbacks, 2);
        QCOMPARE(transactionNote(&conn, QStringLiteral("CommitTrans")), QStringLiteral("Unknown method"));
        QCOMPARE(connectionStateWords(0), QStringLiteral("adStateClosed"));
        QCOMPARE(connectionStateWords(15), QStringLiteral("adStateOpen + adStateConnecting + adStateExecuting + adStateFetching"));

        // A rollback that fails does not disturb the error being reported.
        setCurrent(failure(ERR_GENERAL, QStringLiteral("original")));
        ErrPreserve();
        conn.stateValue = 1;
        bool passedOn = false;
        try {
            ErrorIn(QStringLiteral("modDb.exec"), FlagsInner, {}, {}, &conn);
        } catch (const Error &e) {
            passedOn = true;
            QCOMPARE(e.info().source, QStringLiteral("HuntERR.ErrorIn"));
            QVERIFY(e.description().startsWith(QStringLiteral("  Error Description: original ")));
        }
        QVERIFY(passedOn);
        QVERIFY(lastRollbackNote().startsWith(QStringLiteral("Attempt to call RollbackTrans failed with error '")));
    }

    void valueTexts()
    {
        QObject object;
        QCOMPARE(formatValue(QVariantList{1, 2}), QStringLiteral("{Array}"));
        QCOMPARE(formatValue(QStringList{QStringLiteral("a")}), QStringLiteral("{Array}"));
        QCOMPARE(formatValue(QByteArray("bytes")), QStringLiteral("{Array}"));
        QCOMPARE(formatValue(QStringLiteral("text")), QStringLiteral("'text'"));
        QCOMPARE(formatValue(QVariant()), QStringLiteral("{Empty}"));
        QCOMPARE(formatValue(QVariant(QMetaType::fromType<int>())), QStringLiteral("{Null}"));
        QCOMPARE(formatValue(QVariant::fromValue(&object)), QStringLiteral("{QObject}"));
        QCOMPARE(formatValue(QVariant::fromValue(Unprintable{})), QStringLiteral("{?}"));
        QCOMPARE(formatValue(-12), QStringLiteral("-12"));

        QString heldBack;
        // The limit counts the written text, quotes included: 38 letters fit, 39 are held back.
        const QString fits(38, QLatin1Char('y'));
        const QString tooLong(39, QLatin1Char('z'));
        const QString list = namedValueList(
            NamedValues{QStringLiteral("a, b,c,d"), {QStringLiteral("two\r\nlines"), fits, tooLong, 3.5}}, &heldBack);
        QCOMPARE(list, QStringLiteral("a={Text}, b='") + fits + QStringLiteral("', c={Text}, d=3.5"));
        QCOMPARE(heldBack, QStringLiteral("    Value Of a:\r\n'two\r\nlines'\r\n    Value Of c:\r\n'") + tooLong
                               + QStringLiteral("'\r\n"));

        const QString entry = callStackEntry(QStringLiteral("mod.f(x)"), 12, NamedValues{QStringLiteral("x"), {1}}, {});
        QVERIFY(entry.startsWith(QStringLiteral("  Call Stack: mod.f(x)(x=1)  at Line 12 ---")));
        QCOMPARE(entry.indexOf(CrLf), 100);
        const QString longName(120, QLatin1Char('n'));
        QCOMPARE(callStackEntry(longName, 0, {}, {}), QStringLiteral("  Call Stack: ") + longName + QStringLiteral("() \r\n   \r\n"));
    }

    void solutionVersionFromSettings()
    {
        // No file at all: empty version, no error, and the report shows two quotes.
        QCOMPARE(prtySolutionVer(), QString());
        QCOMPARE(RegGetStringValue(REG_HKEY_LOCAL_MACHINE, InstallationKeyPath, SolutionVersionValue), QString());
        QVERIFY(failInHandler(ERR_GENERAL, QStringLiteral("x")).first().contains(QStringLiteral("  Solution Version: '' \r\n")));
        QCOMPARE(m_shown.size(), 1);

        {
            QSettings system(QSettings::IniFormat, QSettings::SystemScope, QStringLiteral("Zarnivo"), QStringLiteral("zarnivo"));
            system.setValue(QStringLiteral("Installation/SolutionVersion"), QStringLiteral("6.0.12") + QChar(0) + QStringLiteral("junk"));
            system.setValue(QStringLiteral("Installation/Other"), QStringLiteral("o"));
            system.sync();
            QCOMPARE(system.status(), QSettings::NoError);
        }
        // The empty answer was not kept: the next read finds the value, cut at the NUL.
        QCOMPARE(prtySolutionVer(), QStringLiteral("6.0.12"));
        QVERIFY(failInHandler(ERR_GENERAL, QStringLiteral("x")).first().contains(QStringLiteral("  Solution Version: '6.0.12' \r\n")));
        QCOMPARE(RegGetStringValue(REG_HKEY_LOCAL_MACHINE, QStringLiteral("SOFTWARE\\Zarnivo\\zarnivo\\Missing"),
                                   SolutionVersionValue),
                 QString());
        QCOMPARE(RegGetStringValue(REG_HKEY_LOCAL_MACHINE, InstallationKeyPath, QStringLiteral("Absent")), QString());

        {
            QSettings system(QSettings::IniFormat, QSettings::SystemScope, QStringLiteral("Zarnivo"), QStringLiteral("zarnivo"));
            system.setValue(QStringLiteral("Installation/SolutionVersion"), QStringLiteral("7.1"));
        }
        // A found version is kept for the run.
        QCOMPARE(prtySolutionVer(), QStringLiteral("6.0.12"));
        forgetSolutionVer();
        QCOMPARE(prtySolutionVer(), QStringLiteral("7.1"));

        // Support information never holds anything.
        setPrtySupportInfo(QStringLiteral("call us"));
        QCOMPARE(prtySupportInfo(), QString());
        QVERIFY(!isPreserved());
    }
};

QTEST_GUILESS_MAIN(TestErrorTrail)
#include "test_errortrail.moc"
