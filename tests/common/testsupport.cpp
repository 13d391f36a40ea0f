#include "testsupport.h"

#include "demo/demorepository.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QSqlDatabase>
#include <QStringList>

using tree::FolderTree;

QString writeDemo(const QString &parentDir, QString *error)
{
    const QString dir = QDir(parentDir).filePath(QStringLiteral("demo"));
    if (!writeDemoRepository(dir, error))
        return {};
    return dir;
}

bool DemoFixture::setUp()
{
    if (!tmp.isValid()) {
        error = QStringLiteral("no temporary folder");
        return false;
    }
    const QString home = tmp.filePath(QStringLiteral("home"));
    QDir().mkpath(home);
    qputenv("HOME", QFile::encodeName(home));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/.config")));
    qunsetenv("XDG_DOCUMENTS_DIR");
    demo = writeDemo(tmp.path(), &error);
    return !demo.isEmpty();
}

QByteArray sha256OfTree(const QString &dir)
{
    const QDir root(dir);
    QStringList files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << root.relativeFilePath(it.next());
    files.sort();

    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QString &relative : std::as_const(files)) {
        QFile file(root.filePath(relative));
        hash.addData(relative.toUtf8());
        hash.addData(QByteArray(1, '\0'));
        if (!file.open(QIODevice::ReadOnly)) {
            // An unreadable file must not hash like a readable empty one.
            hash.addData(QByteArrayLiteral("<unreadable>"));
            continue;
        }
        hash.addData(QByteArray::number(file.size()) + '\0');
        while (!file.atEnd())
            hash.addData(file.read(1 << 20));
    }
    return hash.result();
}

QByteArray fileBytes(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

bool copyFolder(const QString &from, const QString &to)
{
    if (!QDir().mkpath(to))
        return false;
    const QDir source(from);
    for (const QString &name : source.entryList(QDir::Files | QDir::Hidden))
        if (!QFile::copy(source.filePath(name), QDir(to).filePath(name)))
            return false;
    return true;
}

bool odbcDriverRegistered(const QString &name)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QODBC")))
        return false;
#ifdef Q_OS_WIN
    return QSettings(QStringLiteral("HKEY_LOCAL_MACHINE\\SOFTWARE\\ODBC\\ODBCINST.INI\\ODBC Drivers"), QSettings::NativeFormat)
        .contains(name);
#else
    for (const QString &ini : {QStringLiteral("/etc/odbcinst.ini"), QStringLiteral("/usr/local/etc/odbcinst.ini")})
        if (QSettings(ini, QSettings::IniFormat).childGroups().contains(name))
            return true;
    return false;
#endif
}

DemoSession::DemoSession(const QString &server, const QString &database)
    : opened(s.signIn(server, QStringLiteral("demo"), QString(), database))
{
}

FolderTree::Node *DemoSession::node(qint64 id) const
{
    return s.tree.find(QStringLiteral("Fold%1").arg(id));
}

bool DemoSession::click(qint64 id)
{
    FolderTree::Node *n = node(id);
    return n && s.click(n);
}

bool DemoSession::tick(qint64 id, bool on)
{
    FolderTree::Node *n = node(id);
    return n && s.tick(n, on);
}

bool DemoSession::tickEverything()
{
    if (!click(1) || node(1)->children.empty())
        return false;
    const std::vector<FolderTree::Node *> children = node(1)->children;
    for (FolderTree::Node *child : children)
        if (!s.tick(child))
            return false;
    return true;
}

int startStandin(QProcess &process, const QString &folder, const QStringList &extra)
{
    QString program = qEnvironmentVariable("PARCELWISE_STANDIN");
    if (program.isEmpty())
        program = QCoreApplication::applicationDirPath() + QStringLiteral("/../sqlserver-standin");
    process.setProgram(program);
    process.setArguments(QStringList{QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--server"), folder,
                                     QStringLiteral("--max-seconds"), QStringLiteral("900")}
                         + extra);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start();
    if (!process.waitForStarted(10000))
        return 0;
    while (!process.canReadLine())
        if (!process.waitForReadyRead(10000))
            return 0;
    const QByteArray line = process.readLine().trimmed();
    return line.startsWith("port ") ? line.mid(5).toInt() : 0;
}
