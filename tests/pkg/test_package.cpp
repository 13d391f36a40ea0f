// What a user installs: the manual page and the bash completion against the command line's own
// grammar, and the Debian package that CPack builds from this tree (its name, its dependencies,
// every file it installs, and lintian's verdict on it).

#include "cli/arguments.h"
#include "testsupport.h"

#include <QStandardPaths>

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run run(const QString &program, const QStringList &args, const QString &workDir = {})
{
    QProcess process;
    if (!workDir.isEmpty())
        process.setWorkingDirectory(workDir);
    process.start(program, args);
    Run r;
    if (!process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit) {
        r.err = process.errorString().toUtf8();
        return r;
    }
    r.exitCode = process.exitCode();
    r.out = process.readAllStandardOutput();
    r.err = process.readAllStandardError();
    return r;
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Every command of the parser with the tool itself (named ""), and their option names.
QList<const cli::CommandDef *> everyCommand()
{
    QList<const cli::CommandDef *> all{&cli::toolSpec()};
    for (const cli::CommandDef &c : cli::commands())
        all << &c;
    return all;
}

QString sourceFile(const char *relative)
{
    return QDir(qEnvironmentVariable("PARCELWISE_SOURCE_DIR")).filePath(QString::fromLatin1(relative));
}

} // namespace

class TestPackage : public QObject {
    Q_OBJECT

    QTemporaryDir m_tmp;
    QString m_deb; // the package debianPackage built

    // What the completion offers for the words typed so far; the last word is the one being completed.
    QStringList complete(const QStringList &words, const QMap<QString, QString> &env = {})
    {
        QString script = QStringLiteral("source '%1'\nCOMP_WORDS=(").arg(sourceFile("resources/parcelwise.bash-completion"));
        for (const QString &w : words)
            script += QLatin1Char('\'') + QString(w).replace(QLatin1Char('\''), QStringLiteral("'\\''")) + QStringLiteral("' ");
        script += QStringLiteral(")\nCOMP_CWORD=%1\n_parcelwise\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n").arg(words.size() - 1);
        QProcess bash;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("PARCELWISE_PASSWORD"));
        for (auto it = env.begin(); it != env.end(); ++it)
            environment.insert(it.key(), it.value());
        bash.setProcessEnvironment(environment);
        bash.start(QStringLiteral("bash"), {QStringLiteral("--norc"), QStringLiteral("-c"), script});
        if (!bash.waitForFinished(60000))
            return {QStringLiteral("(bash did not finish)")};
        QStringList offered = QString::fromUtf8(bash.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        offered.sort();
        return offered;
    }

private slots:
    void initTestCase() { QVERIFY(m_tmp.isValid()); }

    void manualPageNamesEveryCommandAndOption()
    {
        QByteArray page = readAll(sourceFile("docs/parcelwise.1"));
        QVERIFY2(!page.isEmpty(), "docs/parcelwise.1 is missing");
        // roff writes a minus that must stay a minus as "\-".
        const QString text = QString::fromUtf8(page).replace(QStringLiteral("\\-"), QStringLiteral("-"));
        for (const char *section : {"NAME", "SYNOPSIS", "DESCRIPTION", "COMMANDS", "OPTIONS", "PASSWORD", "EXIT STATUS",
                                    "ENVIRONMENT", "FILES", "EXAMPLES"})
            QVERIFY2(text.contains(QStringLiteral("\n.SH %1\n").arg(QLatin1String(section))), section);
        QStringList missing;
        for (const cli::CommandDef *c : everyCommand()) {
            if (!c->name.isEmpty() && !text.contains(QStringLiteral("\n.B %1\n").arg(c->name))
                && !text.contains(QStringLiteral("\n.BI %1 ").arg(c->name)))
                missing << c->name;
            for (const cli::OptionDef &o : c->options) {
                for (const QString &name : {o.name, o.shortName}) {
                    const QRegularExpression word(QStringLiteral("(^|[^-\\w])%1([^-\\w]|$)").arg(QRegularExpression::escape(name)));
                    if (!name.isEmpty() && !text.contains(word))
                        missing << name;
                }
            }
        }
        missing.removeDuplicates();
        QVERIFY2(missing.isEmpty(), qPrintable(missing.join(QLatin1Char(' '))));
        // The variables the tool reads are documented too.
        for (const char *variable : {"PARCELWISE_PASSWORD", "PARCELWISE_TRACE_SQL"})
            QVERIFY2(text.contains(QLatin1String(variable)), variable);
    }

    void bashCompletion()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("bash")).isEmpty())
            QSKIP("bash is not installed");
        QStringList commands;
        for (const cli::CommandDef &c : cli::commands())
            commands << c.name;
        commands << QStringLiteral("help");
        commands.sort();
        QCOMPARE(complete({QStringLiteral("parcelwise"), QString()}), commands);
        QCOMPARE(complete({QStringLiteral("parcelwise"), QStringLiteral("ex")}), QStringList{QStringLiteral("export")});

        // Each command's options exactly as the parser knows them (the short -h aside).
        for (const cli::CommandDef *c : everyCommand()) {
            QStringList expected;
            for (const cli::OptionDef &o : c->options)
                expected << o.name;
            QStringList words{QStringLiteral("parcelwise")};
            if (!c->name.isEmpty())
                words << c->name;
            expected.sort();
            QCOMPARE(complete(words << QStringLiteral("--")), expected);
        }

        // Database names from the tool itself, for an embedded server; none for a real server
        // without a password in the environment (a Tab must not cost a failed sign-in).
        const QString exe = qEnvironmentVariable("PARCELWISE_EXE");
        const QString server = m_tmp.filePath(QStringLiteral("demo"));
        QCOMPARE(run(exe, {QStringLiteral("demo"), server}).exitCode, 0);
        const QStringList typed{exe, QStringLiteral("tree"), QStringLiteral("--server"), server, QStringLiteral("--user"),
                                QStringLiteral("demo"), QStringLiteral("--database"), QStringLiteral("Acme")};
        QCOMPARE(complete(typed), QStringList({QStringLiteral("Acme"), QStringLiteral("AcmeArchive")}));
        QStringList remote = typed;
        remote[3] = QStringLiteral("sql01.invalid");
        QCOMPARE(complete(remote), QStringList());
        remote.removeAt(4);
        remote.removeAt(4); // no --user: nothing to sign in with
        QCOMPARE(complete(remote, {{QStringLiteral("PARCELWISE_PASSWORD"), QStringLiteral("x")}}), QStringList());
    }

    void debianPackage()
    {
        const QString dpkgDeb = QStandardPaths::findExecutable(QStringLiteral("dpkg-deb"));
        const QString cpack = qEnvironmentVariable("PARCELWISE_CPACK");
        if (dpkgDeb.isEmpty() || !QFileInfo(cpack).isExecutable())
            QSKIP("dpkg-deb or cpack is not installed");
        const QString out = m_tmp.filePath(QStringLiteral("package"));
        const Run built = run(cpack, {QStringLiteral("-G"), QStringLiteral("DEB"), QStringLiteral("-B"), out,
                                      QStringLiteral("--config"),
                                      QDir(qEnvironmentVariable("PARCELWISE_BUILD_DIR")).filePath(QStringLiteral("CPackConfig.cmake"))});
        QVERIFY2(built.exitCode == 0, built.out + built.err);
        const QString arch = QString::fromUtf8(run(QStringLiteral("dpkg"), {QStringLiteral("--print-architecture")}).out).trimmed();
        const QString deb = QDir(out).filePath(QStringLiteral("parcelwise_6.0.0_%1.deb").arg(arch));
        QVERIFY2(QFileInfo::exists(deb), qPrintable(QDir(out).entryList().join(QLatin1Char(' '))));
        m_deb = deb;

        const Run fields = run(dpkgDeb, {QStringLiteral("-f"), deb, QStringLiteral("Package"), QStringLiteral("Version"),
                                         QStringLiteral("Architecture"), QStringLiteral("Depends")});
        QCOMPARE(fields.exitCode, 0);
        const QString control = QString::fromUtf8(fields.out);
        QVERIFY2(control.contains(QStringLiteral("Package: parcelwise\nVersion: 6.0.0\nArchitecture: ") + arch), qPrintable(control));
        QSet<QString> depends;
        for (const QString &entry : control.section(QStringLiteral("Depends: "), 1).split(QLatin1Char(',')))
            depends << entry.trimmed().section(QLatin1Char(' '), 0, 0);
        // The Qt libraries the executable links, whatever Debian release names them (t64 or not).
        for (const char *lib : {"libqt6core6", "libqt6gui6", "libqt6widgets6", "libqt6sql6"}) {
            const QString name = QString::fromLatin1(lib);
            QVERIFY2(depends.contains(name) || depends.contains(name + QStringLiteral("t64")), qPrintable(control));
        }
        for (const char *driver : {"libqt6sql6-sqlite", "libqt6sql6-odbc", "unixodbc", "tdsodbc"})
            QVERIFY2(depends.contains(QString::fromLatin1(driver)), qPrintable(control));

        const Run listing = run(dpkgDeb, {QStringLiteral("-c"), deb});
        QCOMPARE(listing.exitCode, 0);
        QStringList files;
        for (const QString &line : QString::fromUtf8(listing.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            if (!line.startsWith(QLatin1Char('d')))
                files << line.section(QStringLiteral(" ./"), 1).section(QStringLiteral(" -> "), 0, 0);
        files.sort();
        QCOMPARE(files, QStringList({QStringLiteral("usr/bin/parcelwise"),
                                     QStringLiteral("usr/share/applications/parcelwise.desktop"),
                                     QStringLiteral("usr/share/bash-completion/completions/parcelwise"),
                                     QStringLiteral("usr/share/doc/parcelwise/README.md"),
                                     QStringLiteral("usr/share/doc/parcelwise/changelog.gz"),
                                     QStringLiteral("usr/share/doc/parcelwise/copyright"),
                                     QStringLiteral("usr/share/doc/parcelwise/docs/sqlserver.md"),
                                     QStringLiteral("usr/share/icons/hicolor/scalable/apps/parcelwise.svg"),
                                     QStringLiteral("usr/share/man/man1/parcelwise.1.gz")}));

        // The installed page is the page in the repository, compressed.
        const QString unpacked = m_tmp.filePath(QStringLiteral("unpacked"));
        QCOMPARE(run(dpkgDeb, {QStringLiteral("-x"), deb, unpacked}).exitCode, 0);
        const Run page = run(QStringLiteral("gzip"), {QStringLiteral("-dc"), QDir(unpacked).filePath(QStringLiteral("usr/share/man/man1/parcelwise.1.gz"))});
        QCOMPARE(page.exitCode, 0);
        QCOMPARE(page.out, readAll(sourceFile("docs/parcelwise.1")));
        const Run version = run(QDir(unpacked).filePath(QStringLiteral("usr/bin/parcelwise")), {QStringLiteral("--version")});
        QCOMPARE(version.out, QByteArray("parcelwise 6.0.0\n"));
    }

    // Debian's own checks of the package (licence, changelog, description, hardening): not one
    // error or warning.
    void lintianFindsNothing()
    {
        const QString lintian = QStandardPaths::findExecutable(QStringLiteral("lintian"));
        if (lintian.isEmpty() || m_deb.isEmpty())
            QSKIP("lintian is not installed, or no package was built");
        const Run checked = run(lintian, {QStringLiteral("--tag-display-limit"), QStringLiteral("0"), m_deb});
        QStringList found;
        for (const QString &line : QString::fromUtf8(checked.out).split(QLatin1Char('\n')))
            if (line.startsWith(QLatin1String("E: ")) || line.startsWith(QLatin1String("W: ")))
                found << line;
        QVERIFY2(checked.exitCode >= 0, checked.err);
        QVERIFY2(found.isEmpty(), qPrintable(found.join(QLatin1Char('\n'))));
    }
};

QTEST_GUILESS_MAIN(TestPackage)
#include "test_package.moc"
