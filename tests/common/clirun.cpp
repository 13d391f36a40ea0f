#include "clirun.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>

CliResult CliRunner::run(const QStringList &args, const QByteArray &input, const QMap<QString, QString> &env,
                         const QString &stdoutFile) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"PARCELWISE_PASSWORD", "PARCELWISE_TRACE_SQL", "DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        environment.remove(QLatin1String(name));
    environment.insert(QStringLiteral("HOME"), home);
    for (auto it = env.begin(); it != env.end(); ++it)
        environment.insert(it.key(), it.value());
    QProcess process;
    process.setProcessEnvironment(environment);
    if (!workingDir.isEmpty())
        process.setWorkingDirectory(workingDir);
    if (!stdoutFile.isEmpty())
        process.setStandardOutputFile(stdoutFile);
    process.start(qEnvironmentVariable("PARCELWISE_EXE"), args);
    CliResult result;
    if (!process.waitForStarted(60000)) {
        result.err = process.errorString();
        return result;
    }
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit) {
        result.err = process.errorString();
        return result;
    }
    result.exitCode = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

QStringList demoArgs(const QString &command, const QString &server, const QString &database)
{
    QStringList args{command, QStringLiteral("--server"), server, QStringLiteral("--user"), QStringLiteral("demo")};
    if (!database.isEmpty())
        args << QStringLiteral("--database") << database;
    return args;
}

bool CliFixture::setUp()
{
    if (!QFileInfo(qEnvironmentVariable("PARCELWISE_EXE")).isExecutable()) {
        fx.error = QStringLiteral("PARCELWISE_EXE must name the built executable");
        return false;
    }
    if (!fx.setUp())
        return false;
    runner.home = fx.filePath(QStringLiteral("home"));
    return QDir(runner.home).mkpath(QStringLiteral("Documents"));
}

QString CliFixture::freshDir(const QString &name)
{
    const QString path = fx.filePath(QStringLiteral("%1-%2").arg(name).arg(++dirs));
    QDir().mkpath(path);
    return path;
}
