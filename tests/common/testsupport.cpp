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

#include <cstring>

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

bool StandinProcess::start(const QString &folder, const QStringList &extra)
{
    QString program = qEnvironmentVariable("PARCELWISE_STANDIN");
    if (program.isEmpty())
        program = QCoreApplication::applicationDirPath() + QStringLiteral("/../sqlserver-standin");
    process.setProgram(program);
    process.setArguments(QStringList{QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--server"), folder,
                                     QStringLiteral("--max-seconds"), QStringLiteral("900")}
                         + extra + (logFile.isEmpty() ? QStringList() : QStringList{QStringLiteral("--log")}));
    process.setProcessChannelMode(logFile.isEmpty() ? QProcess::ForwardedErrorChannel : QProcess::SeparateChannels);
    if (!logFile.isEmpty())
        process.setStandardErrorFile(logFile);
    process.start();
    if (!process.waitForStarted(10000))
        return false;
    while (!process.canReadLine())
        if (!process.waitForReadyRead(10000))
            return false;
    const QByteArray line = process.readLine().trimmed();
    port = line.startsWith("port ") ? line.mid(5).toInt() : 0;
    server = port > 0 ? QStringLiteral("127.0.0.1,%1").arg(port) : QString();
    return port > 0;
}

StandinProcess::~StandinProcess()
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.closeWriteChannel(); // its cue to end
    if (!process.waitForFinished(10000))
        process.kill();
}

QStringList treeSnapshot(const QString &dir, const QDateTime &writtenAfter)
{
    QStringList out;
    QDirIterator it(dir, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        const QString rel = QDir(dir).relativeFilePath(path);
        if (info.isDir()) {
            out << rel + u'/';
            continue;
        }
        QFile f(path);
        QCryptographicHash h(QCryptographicHash::Sha256);
        if (!f.open(QIODevice::ReadOnly) || !h.addData(&f)) {
            out << rel + QStringLiteral(" unreadable");
            continue;
        }
        const QDateTime modified = info.lastModified();
        out << QStringLiteral("%1 %2 %3 %4")
                   .arg(rel)
                   .arg(info.size())
                   .arg(QString::fromLatin1(h.result().toHex()),
                        modified < writtenAfter ? QString::number(modified.toMSecsSinceEpoch()) : QStringLiteral("undated"));
    }
    out.sort();
    return out;
}

QByteArray noise(qint64 size, quint32 seed)
{
    // xorshift64*: cheap enough for documents of many megabytes, with no period a test could meet.
    QByteArray b(size, Qt::Uninitialized);
    quint64 x = 0x9E3779B97F4A7C15ull ^ seed;
    for (qint64 i = 0; i < size; i += 8) {
        x ^= x >> 12;
        x ^= x << 25;
        x ^= x >> 27;
        const quint64 word = x * 0x2545F4914F6CDD1Dull;
        memcpy(b.data() + i, &word, size_t(qMin<qint64>(8, size - i)));
    }
    return b;
}

bool addDocuments(const QString &server, const QList<demo::Document> &docs, QString *error,
                  const QList<qint64> &noBytes, const QString &company)
{
    demo::SqliteFile companyFile(demo::databaseFile(server, company));
    demo::SqliteFile archiveFile(demo::databaseFile(server, company + QStringLiteral("Archive")));
    if (!companyFile.open(error) || !archiveFile.open(error))
        return false;
    demo::CompanyWriter writer(companyFile);
    demo::ArchiveWriter archive(archiveFile);
    for (const demo::Document &d : docs) {
        if (!writer.addDocument(d, error)
            || (d.lifecycle == demo::Lifecycle::Archived && !archive.addBytes(d.recId, d.data, error)))
            return false;
    }
    for (const qint64 id : noBytes)
        if (!companyFile.exec(QStringLiteral("UPDATE zar_file SET file_data = NULL WHERE rec_id = %1").arg(id), error))
            return false;
    return true;
}
