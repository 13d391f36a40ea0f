// The command line in scripts: --json beside the plain tables (parsed and held against them, row
// by row), and an export into a destination that does not exist yet.

#include "clirun.h"

#include <QJsonArray>

using Result = CliResult;

class TestScripting : public QObject {
    Q_OBJECT

    CliFixture m_cli;

    static QJsonArray parsed(const QString &text)
    {
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8(), &error);
        if (error.error != QJsonParseError::NoError || !doc.isArray())
            qWarning("not a JSON list: %s", qPrintable(error.errorString()));
        return doc.array();
    }

private slots:
    void initTestCase() { QVERIFY2(m_cli.setUp(), qPrintable(m_cli.fx.error)); }

    void databasesJson()
    {
        // An empty line on stdin is the demo login's empty password, and wins over the environment.
        const Result plain = m_cli.run(m_cli.signIn(QStringLiteral("databases")) << QStringLiteral("--password-stdin"), "\n",
                                       {{QStringLiteral("PARCELWISE_PASSWORD"), QStringLiteral("Wr0ng-Secret")}});
        const Result json = m_cli.run(m_cli.signIn(QStringLiteral("databases")) << QStringLiteral("--json"));
        QCOMPARE(plain.exitCode, 0);
        QCOMPARE(json.exitCode, 0);
        QStringList fromPlain = plain.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QVERIFY(fromPlain.size() > 1);
        fromPlain.removeFirst(); // the header
        for (QString &line : fromPlain)
            line = line.split(QLatin1Char(' '), Qt::SkipEmptyParts).join(QLatin1Char('|'));
        QStringList fromJson;
        for (const QJsonValue &v : parsed(json.out)) {
            const QJsonObject o = v.toObject();
            QCOMPARE(o.keys(), QStringList({QStringLiteral("live"), QStringLiteral("name"), QStringLiteral("type")}));
            auto orDash = [](const QJsonValue &x) { return x.isNull() ? QStringLiteral("-") : x.toString(); };
            fromJson << o.value(QStringLiteral("name")).toString() + QLatin1Char('|') + orDash(o.value(QStringLiteral("type")))
                    + QLatin1Char('|') + orDash(o.value(QStringLiteral("live")));
        }
        QCOMPARE(fromJson, fromPlain);
        QVERIFY(fromJson.contains(QStringLiteral("AcmeArchive|Archive|Acme")));
    }

    void treeJson_data()
    {
        QTest::addColumn<QString>("database");
        QTest::addColumn<int>("depth");
        QTest::addColumn<QList<int>>("archived"); // ids that come from the archived folder list
        QTest::newRow("live, root only") << QStringLiteral("Acme") << 0 << QList<int>();
        QTest::newRow("live, three levels") << QStringLiteral("Acme") << 3 << QList<int>();
        QTest::newRow("archive, every level") << QStringLiteral("AcmeArchive") << 6 << QList<int>{20, 32, 33, 34, 35, 36, 38};
        QTest::newRow("archive, one level") << QStringLiteral("AcmeArchive") << 1 << QList<int>{20, 38};
    }

    void treeJson()
    {
        QFETCH(QString, database);
        QFETCH(int, depth);
        QFETCH(QList<int>, archived);
        const QStringList args = m_cli.signIn(QStringLiteral("tree"), database) << QStringLiteral("--depth=%1").arg(depth);
        const Result plain = m_cli.run(args);
        const Result json = m_cli.run(QStringList(args) << QStringLiteral("--json"));
        QVERIFY2(plain.exitCode == 0, qPrintable(plain.err));
        QVERIFY2(json.exitCode == 0, qPrintable(json.err));

        // The plain lines: the id right-aligned, two blanks, two blanks per level, the text.
        const QRegularExpression line(QStringLiteral("^ *(\\d+)  ((?:  )*)(\\S.*)$"));
        const QStringList lines = plain.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        const QJsonArray folders = parsed(json.out);
        QCOMPARE(folders.size(), lines.size());
        QList<qint64> ancestors; // ids of the open path, by depth
        for (qsizetype i = 0; i < lines.size(); ++i) {
            const QRegularExpressionMatch m = line.match(lines[i]);
            QVERIFY2(m.hasMatch(), qPrintable(lines[i]));
            const QJsonObject o = folders[i].toObject();
            const qint64 id = m.captured(1).toLongLong();
            const int level = int(m.captured(2).size() / 2);
            QCOMPARE(o.value(QStringLiteral("id")).toInteger(), id);
            QCOMPARE(o.value(QStringLiteral("depth")).toInt(), level);
            QCOMPARE(o.value(QStringLiteral("text")).toString(), m.captured(3));
            ancestors.resize(level);
            QCOMPARE(o.value(QStringLiteral("parentId")).isNull(), level == 0);
            if (level > 0)
                QCOMPARE(o.value(QStringLiteral("parentId")).toInteger(), ancestors.last());
            ancestors << id;

            // The stored name: the root's text adds the database and its type.
            const QString name = o.value(QStringLiteral("name")).toString();
            if (level == 0)
                QCOMPARE(m.captured(3), name + QStringLiteral(" [") + database
                                            + (archived.isEmpty() ? QStringLiteral(" <Live> ]") : QStringLiteral(" <Archive> ]")));
            else
                QCOMPARE(name, m.captured(3));
            QCOMPARE(o.value(QStringLiteral("lifecycle")).toString(),
                     archived.contains(int(id)) ? QStringLiteral("archive") : QStringLiteral("live"));

            // Clicked down --depth levels: exactly the nodes above that depth were loaded, and
            // a loaded node's children follow it.
            const bool loaded = level < depth;
            QCOMPARE(o.value(QStringLiteral("childrenLoaded")).toBool(), loaded);
            QCOMPARE(o.value(QStringLiteral("children")).isNull(), !loaded);
            if (loaded) {
                int children = 0;
                for (qsizetype j = i + 1; j < folders.size() && folders[j].toObject().value(QStringLiteral("depth")).toInt() > level; ++j)
                    children += folders[j].toObject().value(QStringLiteral("depth")).toInt() == level + 1;
                QCOMPARE(o.value(QStringLiteral("children")).toInt(), children);
            }
        }
    }

    void destinationCreated()
    {
        const QString dest = m_cli.fx.filePath(QStringLiteral("new/deeper/out"));
        QStringList args = m_cli.signIn(QStringLiteral("export"), QStringLiteral("Acme"));
        args << QStringLiteral("--folder") << QStringLiteral("Projects") << QStringLiteral("--dest") << dest
             << QStringLiteral("--log-dir") << m_cli.fx.filePath(QStringLiteral("home"));
        const QString shown = QDir::toNativeSeparators(QDir::cleanPath(dest));

        // A dry run creates nothing and says it would.
        Result r = m_cli.run(QStringList(args) << QStringLiteral("--dry-run"));
        QVERIFY2(r.exitCode == 0, qPrintable(r.err));
        QVERIFY2(r.err.trimmed().endsWith(QStringLiteral("; destination would be created: ") + shown + QStringLiteral("; connections: 1")),
                 qPrintable(r.err));
        QVERIFY(!QFileInfo::exists(m_cli.fx.filePath(QStringLiteral("new"))));

        // A refused run (a path that does not resolve) creates nothing either.
        r = m_cli.run(QStringList(args) << QStringLiteral("--folder") << QStringLiteral("Nowhere"));
        QCOMPARE(r.exitCode, 2);
        QVERIFY(!QFileInfo::exists(m_cli.fx.filePath(QStringLiteral("new"))));

        r = m_cli.run(args);
        QVERIFY2(r.exitCode == 0, qPrintable(r.err));
        QVERIFY2(r.err.trimmed().endsWith(QStringLiteral("; destination created: ") + shown + QStringLiteral("; connections: 4")),
                 qPrintable(r.err));
        QVERIFY(QFileInfo::exists(dest + QStringLiteral("/Projects/Plans/2016/Reports/Q4 report.pdf")));

        // The second run finds it there: nothing to say about it.
        r = m_cli.run(QStringList(args) << QStringLiteral("--replace"));
        QVERIFY2(r.exitCode == 0, qPrintable(r.err));
        QVERIFY2(!r.err.contains(QStringLiteral("destination")), qPrintable(r.err));
    }
};

QTEST_GUILESS_MAIN(TestScripting)
#include "test_scripting.moc"
