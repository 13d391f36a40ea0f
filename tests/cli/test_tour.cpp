// The README's demo tour, run as it stands: every `parcelwise` command of its shell blocks that
// works on ./demo-repository, in order, in one fresh folder, each row expecting exit status 0
// unless the line says "# exit status N". A README example that stops working fails here.

#include "clirun.h"

namespace {

// Words as the shell splits them: blanks separate, quotes group, backslash escapes.
QStringList shellWords(const QString &line)
{
    QStringList words;
    QString word;
    bool inWord = false;
    QChar quote;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line[i];
        if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
            else if (c == QLatin1Char('\\') && quote == QLatin1Char('"') && i + 1 < line.size())
                word += line[++i];
            else
                word += c;
        } else if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
            quote = c;
            inWord = true;
        } else if (c == QLatin1Char('\\') && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (c.isSpace()) {
            if (inWord)
                words << word;
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord)
        words << word;
    return words;
}

struct TourStep {
    QString line;
    QStringList args;
    int status = 0;
};

// The README's shell blocks, continuation lines joined.
QList<TourStep> tourSteps(const QString &readme)
{
    QList<TourStep> steps;
    const QRegularExpression block(QStringLiteral("```sh\\n(.*?)```"), QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpression status(QStringLiteral("#\\s*exit status (\\d+)\\s*$"));
    for (auto it = block.globalMatch(readme); it.hasNext();) {
        QString text = it.next().captured(1);
        text.replace(QStringLiteral("\\\n"), QStringLiteral(" "));
        for (QString line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            line = line.trimmed();
            // Pipes and redirections are the shell's business; what runs here is the tool alone.
            if (!line.startsWith(QLatin1String("parcelwise ")) || !line.contains(QLatin1String("./demo-repository"))
                || line.contains(QLatin1Char('|')) || line.contains(QLatin1Char('<')))
                continue;
            TourStep step;
            step.line = line;
            const QRegularExpressionMatch m = status.match(line);
            if (m.hasMatch()) {
                step.status = m.captured(1).toInt();
                line = line.left(m.capturedStart()).trimmed();
            } else if (line.contains(QLatin1Char('#'))) {
                line = line.left(line.indexOf(QLatin1Char('#'))).trimmed();
            }
            step.args = shellWords(line).mid(1);
            steps << step;
        }
    }
    return steps;
}

} // namespace

class TestTour : public QObject {
    Q_OBJECT

    QTemporaryDir m_tmp;

private slots:
    void readmeTour_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("status");
        QFile readme(QDir(qEnvironmentVariable("PARCELWISE_SOURCE_DIR")).filePath(QStringLiteral("README.md")));
        QVERIFY(readme.open(QIODevice::ReadOnly));
        const QList<TourStep> steps = tourSteps(QString::fromUtf8(readme.readAll()));
        QVERIFY(steps.size() >= 8);
        QCOMPARE(steps.first().args.value(0), QStringLiteral("demo")); // the tour starts by writing the demo
        for (const TourStep &step : steps)
            QTest::newRow(qPrintable(step.line)) << step.args << step.status;
    }

    // Rows run in README order in the one folder, as a reader typing them would.
    void readmeTour()
    {
        QFETCH(QStringList, args);
        QFETCH(int, status);
        QVERIFY(m_tmp.isValid());
        QDir(m_tmp.path()).mkpath(QStringLiteral("home/Documents"));
        const CliResult r = CliRunner{m_tmp.filePath(QStringLiteral("home")), m_tmp.path()}.run(args);
        const QString &err = r.err, &out = r.out;
        QVERIFY2(r.exitCode == status, qPrintable(err));
        if (status == 0)
            QVERIFY2(!err.contains(QLatin1String("error report")), qPrintable(err));
        else
            QVERIFY2(err.startsWith(QLatin1String("parcelwise: ")), qPrintable(err));
        if (args.contains(QStringLiteral("--json")))
            QVERIFY2(out.startsWith(QLatin1Char('[')), qPrintable(out));
    }
};

QTEST_GUILESS_MAIN(TestTour)
#include "test_tour.moc"
