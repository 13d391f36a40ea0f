// The embedded server prepares each shape of statement once (the compared ids bound as values)
// and asks SQLite for "x IN (SELECT ...)" as a correlated EXISTS. Both must be invisible: every
// statement the tool sends returns exactly the rows SQLite gives for the statement as written,
// on every folder and document of the demo repository, in any order of use, and failures still
// report through the statement as written.

#include "repository_suite.h"
#include "scopes.h"
#include "testsupport.h"

#include "repository/connection.h"
#include "repository/sqladapt.h"
#include "repository/statementshapes.h"

#include <QSqlRecord>

using suite::failure;

namespace {

QString cellText(const QVariant &v)
{
    if (v.isNull())
        return QStringLiteral("NULL");
    if (v.typeId() == QMetaType::QByteArray)
        return QStringLiteral("%1 bytes %2").arg(v.toByteArray().size()).arg(qChecksum(v.toByteArray()));
    return v.toString();
}

// Rows as text, one "a|b|c" line per row, blobs as their length and checksum.
QStringList rowsOf(repo::RecordSet rs)
{
    QStringList out;
    while (!rs.eof()) {
        QStringList cells;
        for (const QString &field : rs.fieldNames()) {
            cells << cellText(rs.value(field));
        }
        out << cells.join(u'|');
        rs.moveNext();
    }
    return out;
}

QStringList rowsOf(QSqlQuery &q)
{
    QStringList out;
    while (q.next()) {
        QStringList cells;
        for (int c = 0; c < q.record().count(); ++c) {
            cells << cellText(q.value(c));
        }
        out << cells.join(u'|');
    }
    return out;
}

} // namespace

class TestStatementShapes : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
        repo::setTraceFile(QString());
        // SQLite itself, reading the statement as written: the answer every shape must give.
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("reference"));
        db.setDatabaseName(QDir(m_fx.demo).filePath(QStringLiteral("Acme.sqlite")));
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        QVERIFY(db.open());
        QSqlQuery q(db);
        QVERIFY(q.exec(QStringLiteral("ATTACH DATABASE '%1' AS AcmeArchive")
                           .arg(QDir(m_fx.demo).filePath(QStringLiteral("AcmeArchive.sqlite")))));
    }

    void init()
    {
        HuntERR::reset();
        repo::setEmbeddedDriver(QStringLiteral("QSQLITE"));
    }

    void idsTakenOut_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QList<qint64>>("values");
        const auto row = [](const char *name, const QString &in, const QString &out, QList<qint64> values) {
            QTest::newRow(name) << in << out << values;
        };
        row("document", suite::documentLive(4711),
            "Select a.File_name, a.File_Description, a.file_data  FROM ZAR_File a, zar_FileLive b  WHERE (a.rec_id = "
            "b.rec_id and a.Rec_ID =?1)",
            {4711});
        row("parenthesised id and a level", "select a from m b where b.parent_rec_id = (7) And b.relative_level_no = 1 ",
            "select a from m b where b.parent_rec_id = (?1) And b.relative_level_no = ?2 ", {7, 1});
        // The date statement keeps its type lengths, styles and RIGHT lengths: none follows "=".
        row("dates", suite::fileDates(1007), suite::fileDates(1007).replace("rec_id = 1007", "rec_id = ?1"), {1007});
        row("probe, id twice", suite::archivedBelow(12, "AcmeArchive"),
            suite::archivedBelow(12, "AcmeArchive").replace("parent_rec_id = 12", "parent_rec_id = ?1").replace("folder_rec_id = 12", "folder_rec_id = ?2"),
            {12, 12});
        row("not plain whole numbers", "select a from t where x = 5.0 and y = 0x1F and v = 5 + 1 and u =-3 and w = 1e3",
            "select a from t where x = 5.0 and y = 0x1F and v = 5 + 1 and u =-3 and w = 1e3", {});
        row("literals, names and comments", "select '= 5' from [t = 6] /* = 11 */ where \"c = 7\" = 8 and d = 10 order by e -- = 9",
            "select '= 5' from [t = 6] /* = 11 */ where \"c = 7\" = ?1 and d = ?2 order by e -- = 9", {8, 10});
        row("quote inside a literal", "select 'it''s = 5' where a = 6", "select 'it''s = 5' where a = ?1", {6});
        row("comparisons", "select a from t where x <= 5 and y >= 6 and z <> 7", "select a from t where x <= ?1 and y >= ?2 and z <> 7",
            {5, 6});
        row("too long for a whole number", "select a from t where x = 12345678901234567890",
            "select a from t where x = 12345678901234567890", {});
        row("own placeholders", "select a from t where x = ? and y = 5", "select a from t where x = ? and y = 5", {});
    }

    void idsTakenOut()
    {
        QFETCH(QString, input);
        QFETCH(QString, text);
        QFETCH(QList<qint64>, values);
        const repo::ParameterizedStatement shape = repo::parameterizeTSql(input);
        QCOMPARE(shape.text, text);
        QCOMPARE(shape.values, values);
    }

    void inAsExists_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<bool>("rewritten");
        const auto row = [](const char *name, const QString &in, bool rewritten) { QTest::newRow(name) << in << rewritten; };
        row("probe", suite::archivedBelow(12, "AcmeArchive"), true);
        row("qualified column, WHERE first", "select a from t where t.x in (select u.y from u) order by a", true);
        row("followed by OR", "select a from t where x in (select y from u) or z = 1", true);
        row("NOT IN", "select a from t where x not in (select y from u)", false);
        row("NOT before", "select a from t where not a = 1 and x in (select y from u)", false);
        row("compared", "select a from t where x in (select y from u) = 0", false);
        row("inside CASE", "select a from t where case when x in (select y from u) then 1 else 0 end = 1", false);
        row("BETWEEN before", "select a from t where b between 1 and x in (select y from u)", false);
        row("in the select list", "select x in (select y from u) from t", false);
        row("in an ON clause", "select a from t join v on x in (select y from u)", false);
        row("parenthesised condition", "select a from t where (x in (select y from u))", false);
        row("list of values", "select a from t where x in (1, 2)", false);
        row("UNION inside", "select a from t where x in (select y from u union select z from w)", false);
        row("DISTINCT", "select a from t where x in (select distinct y from u)", false);
        row("expression selected", "select a from t where x in (select y + 1 from u)", false);
        row("LIMIT inside", "select a from t where x in (select y from u limit 2)", false);
    }

    void inAsExists()
    {
        QFETCH(QString, input);
        QFETCH(bool, rewritten);
        const QString adapted = repo::adaptTSqlForSqlite(input).sql;
        QCOMPARE(adapted.contains(QStringLiteral("EXISTS (SELECT 1 FROM (")), rewritten);
        if (!rewritten)
            QCOMPARE(adapted, QString(input).replace(QStringLiteral(".."), QStringLiteral(".")));
    }

    // Every statement form the folder tree and the export send, for every folder and document of the
    // demo repository, through Qt's SQLite (shapes) and the SQLite3 ODBC driver (as written, adapted),
    // against SQLite reading the statement as written.
    void sameRowsAsWritten()
    {
        const QString archiveDb = QStringLiteral("AcmeArchive");
        QList<qint64> folders{0, 999};
        for (const QString &id : reference(QStringLiteral("select Rec_ID from zar_Folder order by Rec_ID")))
            folders << id.toLongLong();
        QList<qint64> documents{424242};
        for (const QString &id : reference(QStringLiteral("select rec_id from zar_file order by rec_id")))
            documents << id.toLongLong();
        QVERIFY(folders.size() > 30);
        QVERIFY(documents.size() > 30);

        QStringList statements;
        for (const qint64 f : std::as_const(folders)) {
            statements << suite::firstLevel(f) << suite::liveChildren(f) << suite::archiveChildren(f)
                       << suite::archivedBelow(f, archiveDb) << suite::subFoldersLive(f, false)
                       << suite::subFoldersLive(f, true) << suite::subFoldersArchive(f) << suite::folderFilesLive(f)
                       << suite::folderFilesArchive(f, archiveDb);
        }
        for (const qint64 d : std::as_const(documents))
            statements << suite::documentLive(d) << suite::documentArchive(d, archiveDb);
        // The statements as SQLite reads them when nothing is taken out or rewritten: only the
        // three-part name needs SQLite's form. (The date statement is left to the suite's own checks:
        // SQLite cannot read its T-SQL as written.)
        const auto asWritten = [&](QString sql) { return sql.replace(archiveDb + "..", archiveDb + "."); };

        for (const QString &driver : {QStringLiteral("QSQLITE"), QStringLiteral("SQLite3")}) {
            const EmbeddedDriverScope embedded(driver);
            repo::Connection cn;
            QString text;
            if (failure([&] { cn.open(suite::connectionText(m_fx.demo, "Acme")); }, &text) != 0) {
                QVERIFY2(driver != QLatin1String("QSQLITE"), qPrintable(text));
                qWarning("SQLite3 ODBC driver not usable, only Qt's SQLite checked: %s", qPrintable(text));
                continue;
            }
            int withRows = 0;
            // Twice over, so the second round runs on shapes prepared in the first.
            for (int round = 0; round < 2; ++round) {
                for (const QString &sql : std::as_const(statements)) {
                    QStringList got;
                    QCOMPARE(failure([&] { got = rowsOf(cn.execute(sql)); }, &text), 0);
                    const QStringList expected = reference(asWritten(sql));
                    if (got != expected)
                        qWarning() << driver << sql;
                    QCOMPARE(got, expected);
                    withRows += got.isEmpty() ? 0 : 1;
                }
            }
            // Enough of them return rows to mean something.
            QVERIFY2(withRows > statements.size() / 2, qPrintable(QStringLiteral("%1 of %2").arg(withRows).arg(statements.size() * 2)));
            // The probe answers for the folders the demo describes: archived documents in or below.
            QCOMPARE(cn.execute(suite::archivedBelow(10, archiveDb)).recordCount() >= 1, true); // Finance
            QCOMPARE(cn.execute(suite::archivedBelow(29, archiveDb)).recordCount(), 0);         // Budgets
            QCOMPARE(cn.execute(suite::archivedBelow(37, archiveDb)).recordCount(), 0);         // Empty Archived
        }
    }

    void shapesReusedAndRefused()
    {
        repo::Connection cn;
        cn.open(suite::connectionText(m_fx.demo, "Acme"));
        // (One shape with many ids, interleaved with others: sameRowsAsWritten's second round.)
        // Failures report through the statement as written: same number, same text, and the
        // connection and its shapes work on afterwards.
        QString text;
        QCOMPARE(failure([&] { cn.execute(QStringLiteral("select * from zar_nothing where rec_id = 5")); }, &text),
                 repo::ERR_NO_OBJECT);
        QCOMPARE(text, QStringLiteral("Invalid object name 'zar_nothing'."));
        QCOMPARE(cn.errorDescriptions(), QStringList({text}));
        QCOMPARE(failure([&] { cn.execute(QStringLiteral("select * from Nowhere..zar_FileArchive where FileID = 5")); }),
                 repo::ERR_NO_OBJECT);
        QCOMPARE(failure([&] { cn.execute(QStringLiteral("selec * from zar_file where rec_id = 5")); }, &text),
                 repo::ERR_COMMAND);
        QCOMPARE(text, QStringLiteral("Incorrect syntax near 'selec'."));
        QVERIFY(failure([&] { cn.execute(QStringLiteral("delete from zar_file where rec_id = 1007")); }) != 0);
        QCOMPARE(rowsOf(cn.execute(suite::documentLive(1007))), reference(suite::documentLive(1007)));

        // Closed and opened again on another database: nothing prepared for the first one is used.
        cn.close();
        QCOMPARE(failure([&] { cn.execute(suite::documentLive(1007)); }), 3709);
        cn.open(suite::connectionText(m_fx.demo, "Globex"));
        QCOMPARE(failure([&] { cn.execute(suite::documentLive(1007)); }), 0);
        QCOMPARE(cn.execute(suite::firstLevel(0)).recordCount(), 1);
    }

private:
    QStringList reference(const QString &sqliteSql)
    {
        QSqlQuery q(QSqlDatabase::database(QStringLiteral("reference")));
        q.setForwardOnly(true);
        if (!q.exec(sqliteSql)) {
            qWarning() << "reference failed:" << q.lastError().text() << sqliteSql;
            return {QStringLiteral("reference failed")};
        }
        return rowsOf(q);
    }

    DemoFixture m_fx;
};

QTEST_GUILESS_MAIN(TestStatementShapes)
#include "test_statement_shapes.moc"
