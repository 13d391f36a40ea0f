#include "exportcheck.h"

#include "demo/schema.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

namespace {

// The characters file names cannot hold, as blanks.
QString cleaned(QString name)
{
    for (QChar c : QStringLiteral("\\/:*?\"<>|"))
        name.replace(c, QLatin1Char(' '));
    return name;
}

QString blankTrimmed(QString s)
{
    while (s.startsWith(QLatin1Char(' ')))
        s.remove(0, 1);
    while (s.endsWith(QLatin1Char(' ')))
        s.chop(1);
    return s;
}

QString extensionOf(const QString &stored)
{
    const QString s = blankTrimmed(stored);
    const qsizetype point = s.lastIndexOf(QLatin1Char('.'));
    return point < 0 ? QString() : s.mid(point);
}

// The instant a stored date stands for: local wall time taken with today's offset.
QDateTime exportedInstant(const QVariant &stored)
{
    if (stored.isNull())
        return {};
    const QDateTime wall = QDateTime::fromString(stored.toString().left(19), QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    return QDateTime(wall.date(), wall.time(), Qt::UTC).addSecs(-QDateTime::currentDateTime().offsetFromUtc());
}

} // namespace

void ExpectedTree::replace(const QString &rel)
{
    auto under = [&](const QString &p) { return p == rel || p.startsWith(rel + QLatin1Char('/')); };
    for (auto it = dirs.begin(); it != dirs.end();)
        it = under(*it) ? dirs.erase(it) : std::next(it);
    for (auto it = files.begin(); it != files.end();)
        it = under(it.key()) ? files.erase(it) : std::next(it);
    dirs.insert(rel);
}

RepositoryReader::RepositoryReader(const QString &server, const QString &company, const QString &archive)
    : m_archive(!archive.isEmpty())
{
    static int serial = 0;
    m_name = QStringLiteral("exportcheck-reader%1").arg(++serial);
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
    db.setDatabaseName(demo::databaseFile(server, company));
    db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
    m_ok = db.open();
    if (m_ok && m_archive) {
        QSqlQuery q(db);
        m_ok = q.exec(QStringLiteral("ATTACH DATABASE '%1' AS arc").arg(demo::databaseFile(server, archive)));
    }
}

RepositoryReader::~RepositoryReader()
{
    QSqlDatabase::database(m_name, false).close();
    QSqlDatabase::removeDatabase(m_name);
}

QList<QVariantList> RepositoryReader::rows(const QString &sql, int columns) const
{
    QSqlQuery q(QSqlDatabase::database(m_name));
    QList<QVariantList> out;
    if (!q.exec(sql)) {
        qWarning() << q.lastError().text() << sql;
        return out;
    }
    while (q.next()) {
        QVariantList row;
        for (int i = 0; i < columns; ++i)
            row << q.value(i);
        out << row;
    }
    return out;
}

QList<QPair<qint64, QString>> RepositoryReader::children(qint64 parent) const
{
    QString sql = QStringLiteral("SELECT f.Rec_ID, f.Folder_Name FROM zar_Folder f JOIN zar_FolderLive l "
                                 "ON l.rec_id = f.Rec_ID WHERE f.Folder_Parent = %1");
    if (m_archive)
        sql += QStringLiteral(" UNION ALL SELECT f.Rec_ID, f.Folder_Name FROM zar_Folder f JOIN ZAR_FolderArchived a "
                              "ON a.rec_id = f.Rec_ID WHERE f.Folder_Parent = %1");
    QList<QPair<qint64, QString>> out;
    QSet<qint64> listed; // a folder both live and archived is one folder
    for (const QVariantList &r : rows(sql.arg(parent) + QStringLiteral(" ORDER BY 2, 1"), 2))
        if ((!m_archive || holdsArchived(r[0].toLongLong())) && !listed.contains(r[0].toLongLong())) {
            listed.insert(r[0].toLongLong());
            out << qMakePair(r[0].toLongLong(), r[1].toString());
        }
    return out;
}

QList<QVariantList> RepositoryReader::documents(qint64 folder) const
{
    const QString sql = m_archive ? QStringLiteral("SELECT f.rec_id, f.File_Name, f.File_Description, c.FileData, "
                                                   "f.FileActualDate, f.File_DateUploaded FROM zar_file f JOIN "
                                                   "ZAR_FileArchived a ON a.rec_id = f.rec_id JOIN arc.zar_FileArchive "
                                                   "c ON c.FileID = f.rec_id WHERE f.folder_rec_id = %1")
                                  : QStringLiteral("SELECT f.rec_id, f.File_Name, f.File_Description, f.file_data, "
                                                   "f.FileActualDate, f.File_DateUploaded FROM zar_file f JOIN "
                                                   "zar_fileLive l ON l.rec_id = f.rec_id WHERE f.folder_rec_id = %1");
    return rows(sql.arg(folder) + QStringLiteral(" ORDER BY f.File_Description, f.rec_id"), 6);
}

bool RepositoryReader::holdsArchived(qint64 folder) const
{
    if (!documents(folder).isEmpty())
        return true;
    for (const QVariantList &r :
         rows(QStringLiteral("SELECT Rec_ID FROM zar_Folder WHERE Folder_Parent = %1").arg(folder), 1)) {
        if (holdsArchived(r[0].toLongLong()))
            return true;
    }
    return false;
}

void RepositoryReader::addDocuments(qint64 folder, const QString &rel, ExpectedTree &out) const
{
    QSet<QString> written;
    for (const QVariantList &d : documents(folder)) {
        const qint64 id = d[0].toLongLong();
        QString title = cleaned(d[2].toString());
        const QString ext = extensionOf(d[1].toString());
        if (written.contains(title + ext)) // a second title alike keeps its id beside it
            title += QStringLiteral(" [%1]").arg(id);
        const bool fallback = blankTrimmed(title).isEmpty() || title == QLatin1String(".")
                              || title == QLatin1String("..") || (title + ext).toLocal8Bit().size() > 255;
        const QString name = fallback ? QStringLiteral("[%1]").arg(id) + ext : title + ext;
        written.insert(name);
        out.files[rel + QLatin1Char('/') + name] << ExpectedTree::Candidate{
            d[3].toByteArray(), exportedInstant(d[4].isNull() ? d[5] : d[4])};
    }
}

void RepositoryReader::addSubtree(qint64 folder, const QString &rel, ExpectedTree &out) const
{
    out.replace(rel);
    addDocuments(folder, rel, out);
    for (const auto &child : children(folder))
        addSubtree(child.first, directoryName(rel + QLatin1Char('/'), child, out), out);
}

void RepositoryReader::addEverything(ExpectedTree &out) const
{
    for (const auto &child : children(1))
        addSubtree(child.first, directoryName(QString(), child, out), out);
}

QString RepositoryReader::directoryName(const QString &parent, const QPair<qint64, QString> &folder,
                                        const ExpectedTree &out)
{
    const QString tag = QStringLiteral("[%1]").arg(folder.first);
    QString name = blankTrimmed(cleaned(folder.second));
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        name = tag;
    while (out.dirs.contains(parent + name))
        name += QLatin1Char(' ') + tag;
    return parent + name;
}

void listTree(const QString &dir, QSet<QString> *dirs, QStringList *files)
{
    const QDir root(dir);
    QDirIterator it(dir, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString rel = root.relativeFilePath(path);
        if (it.fileInfo().isDir())
            dirs->insert(rel);
        else
            files->append(rel);
    }
}

void compareWithRepository(const QString &dest, const ExpectedTree &expected, const QDateTime &runStart,
                           const QHash<QString, QByteArray> *lastWritten)
{
    QSet<QString> dirs;
    QStringList files;
    listTree(dest, &dirs, &files);
    QCOMPARE(dirs, expected.dirs);
    QStringList expectedFiles = expected.files.keys();
    expectedFiles.sort();
    files.sort();
    QCOMPARE(files, expectedFiles);
    for (const QString &rel : std::as_const(files)) {
        const QString path = dest + QLatin1Char('/') + rel;
        QFile f(path);
        QVERIFY2(f.open(QIODevice::ReadOnly), qPrintable(path));
        const QByteArray bytes = f.readAll();
        const QList<ExpectedTree::Candidate> &candidates = expected.files.value(rel);
        const ExpectedTree::Candidate *match = nullptr;
        for (const ExpectedTree::Candidate &c : candidates)
            if (c.bytes == bytes)
                match = &c;
        QVERIFY2(match, qPrintable(QStringLiteral("unexpected content in ") + rel));
        if (candidates.size() > 1 && lastWritten) // written twice: the later write is what stays
            QCOMPARE(bytes, lastWritten->value(path));
        const QDateTime mtime = QFileInfo(path).lastModified();
        if (match->date.isValid())
            QVERIFY2(mtime.toSecsSinceEpoch() == match->date.toSecsSinceEpoch(),
                     qPrintable(QStringLiteral("%1: %2 instead of %3")
                                    .arg(rel, mtime.toUTC().toString(Qt::ISODate),
                                         match->date.toString(Qt::ISODate))));
        else
            QVERIFY2(mtime.toSecsSinceEpoch() >= runStart.toSecsSinceEpoch() - 2, qPrintable(rel));
    }
}

