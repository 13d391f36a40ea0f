#include "demo/schema.h"

#include <QDir>
#include <QFile>
#include <QSqlError>

#include <atomic>

namespace demo {

namespace {

std::atomic<int> connectionCounter{0};

void setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
}

QString describe(const QSqlError &e)
{
    QString text = e.databaseText();
    if (text.isEmpty())
        text = e.driverText();
    return text.isEmpty() ? e.text() : text;
}

bool runAll(SqliteFile &db, const QStringList &statements, QString *error)
{
    for (const QString &sql : statements) {
        if (!db.exec(sql, error))
            return false;
    }
    return true;
}

// NULL for an empty date text: the repository keeps missing dates as NULL, never as ''.
QVariant dateValue(const QString &text)
{
    return text.isEmpty() ? QVariant(QMetaType::fromType<QString>()) : QVariant(text);
}

bool run(QSqlQuery &query, const QString &what, QString *error)
{
    if (query.exec())
        return true;
    setError(error, QStringLiteral("%1: %2").arg(what, describe(query.lastError())));
    return false;
}

bool prepare(QSqlQuery &query, const QString &sql, QString *error)
{
    if (query.prepare(sql))
        return true;
    setError(error, QStringLiteral("Cannot prepare \"%1\": %2").arg(sql, describe(query.lastError())));
    return false;
}

} // namespace

SqliteFile::SqliteFile(const QString &path)
    : m_path(path)
    , m_connectionName(QStringLiteral("parcelwise_demo_writer_%1").arg(connectionCounter.fetch_add(1)))
{
}

SqliteFile::~SqliteFile()
{
    close();
}

bool SqliteFile::open(QString *error)
{
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE"))) {
        setError(error, QStringLiteral("The SQLite driver (QSQLITE) of Qt SQL is not installed"));
        return false;
    }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
        db.setDatabaseName(m_path);
        if (!db.open()) {
            setError(error, QStringLiteral("Cannot open %1: %2").arg(QDir::toNativeSeparators(m_path),
                                                                     describe(db.lastError())));
            return false;
        }
    }
    // The page size only takes effect before the first table; the journal stays a rollback
    // journal so that readers see one self-contained file once the writer is gone. Durability
    // is not needed while a file is being generated: a failed run is simply run again.
    return runAll(*this,
                  {QStringLiteral("PRAGMA page_size = 4096"), QStringLiteral("PRAGMA journal_mode = DELETE"),
                   QStringLiteral("PRAGMA synchronous = OFF"), QStringLiteral("PRAGMA encoding = 'UTF-8'")},
                  error);
}

void SqliteFile::close()
{
    if (!QSqlDatabase::contains(m_connectionName))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connectionName);
}

QSqlDatabase SqliteFile::database() const
{
    return QSqlDatabase::database(m_connectionName, false);
}

bool SqliteFile::exec(const QString &sql, QString *error)
{
    QSqlQuery query(database());
    if (query.exec(sql))
        return true;
    setError(error, QStringLiteral("%1: \"%2\" failed: %3")
                        .arg(QDir::toNativeSeparators(m_path), sql, describe(query.lastError())));
    return false;
}

QString databaseFile(const QString &dir, const QString &name)
{
    return QDir(dir).filePath(name + QStringLiteral(".sqlite"));
}

bool createCatalogueTables(SqliteFile &db, QString *error)
{
    return runAll(db,
                  {QStringLiteral("CREATE TABLE Com_Company ("
                                  "com_id INTEGER NOT NULL PRIMARY KEY, "
                                  "Com_db TEXT COLLATE NOCASE, "
                                  "com_type TEXT COLLATE NOCASE, "
                                  "live_com_id INTEGER)"),
                   QStringLiteral("CREATE INDEX ix_Com_Company_db ON Com_Company (Com_db)")},
                  error);
}

bool createCompanyTables(SqliteFile &db, QString *error)
{
    // file_data is the last column of zar_file on purpose: SQLite must walk a long value's
    // overflow pages to reach any column stored after it, and the date query reads the dates of
    // documents that may be tens of megabytes long.
    return runAll(db,
                  {QStringLiteral("CREATE TABLE zar_Folder ("
                                  "Rec_ID INTEGER NOT NULL PRIMARY KEY, "
                                  "Folder_Parent INTEGER NOT NULL, "
                                  "Folder_Name TEXT COLLATE NOCASE, "
                                  "IsAdmin INTEGER NOT NULL DEFAULT 0, "
                                  "Icon_rec_id INTEGER, "
                                  "Folder_Type TEXT COLLATE NOCASE)"),
                   QStringLiteral("CREATE TABLE zar_FolderLive (rec_id INTEGER NOT NULL PRIMARY KEY)"),
                   QStringLiteral("CREATE TABLE ZAR_FolderArchived (rec_id INTEGER NOT NULL PRIMARY KEY)"),
                   QStringLiteral("CREATE TABLE zar_folder_matrix ("
                                  "parent_rec_id INTEGER NOT NULL, "
                                  "child_rec_id INTEGER NOT NULL, "
                                  "relative_level_no INTEGER NOT NULL, "
                                  "PRIMARY KEY (parent_rec_id, child_rec_id))"),
                   QStringLiteral("CREATE TABLE zar_folder_name_path ("
                                  "rec_id INTEGER NOT NULL PRIMARY KEY, "
                                  "TS TEXT COLLATE NOCASE)"),
                   QStringLiteral("CREATE TABLE zar_file ("
                                  "rec_id INTEGER NOT NULL PRIMARY KEY, "
                                  "folder_rec_id INTEGER NOT NULL, "
                                  "File_Name TEXT COLLATE NOCASE, "
                                  "File_Description TEXT COLLATE NOCASE, "
                                  "FileActualDate TEXT COLLATE NOCASE, "
                                  "File_DateUploaded TEXT COLLATE NOCASE, "
                                  "file_data BLOB)"),
                   QStringLiteral("CREATE TABLE zar_fileLive (rec_id INTEGER NOT NULL PRIMARY KEY)"),
                   QStringLiteral("CREATE TABLE ZAR_FileArchived (rec_id INTEGER NOT NULL PRIMARY KEY)")},
                  error);
}

bool createCompanyIndexes(SqliteFile &db, QString *error)
{
    return runAll(db,
                  {QStringLiteral("CREATE INDEX ix_zar_Folder_parent ON zar_Folder (Folder_Parent, Folder_Name)"),
                   QStringLiteral("CREATE INDEX ix_zar_folder_matrix_child ON zar_folder_matrix "
                                  "(child_rec_id, parent_rec_id)"),
                   QStringLiteral("CREATE INDEX ix_zar_file_folder ON zar_file (folder_rec_id, File_Description)")},
                  error);
}

bool createArchiveTables(SqliteFile &db, QString *error)
{
    return db.exec(QStringLiteral("CREATE TABLE zar_FileArchive ("
                                  "FileID INTEGER NOT NULL PRIMARY KEY, "
                                  "FileData BLOB)"),
                   error);
}

bool buildFolderMatrix(SqliteFile &db, QString *error)
{
    // Walk up from every folder to the top. The level limit only guards against a parent cycle
    // in hand-made data; a real hierarchy is far shallower.
    return db.exec(QStringLiteral(
                       "WITH RECURSIVE up (child, ancestor, level) AS ("
                       " SELECT Rec_ID, Folder_Parent, 1 FROM zar_Folder WHERE Folder_Parent <> 0"
                       " UNION ALL"
                       " SELECT up.child, f.Folder_Parent, up.level + 1 FROM up"
                       " JOIN zar_Folder f ON f.Rec_ID = up.ancestor"
                       " WHERE f.Folder_Parent <> 0 AND up.level < 10000)"
                       " INSERT INTO zar_folder_matrix (parent_rec_id, child_rec_id, relative_level_no)"
                       " SELECT ancestor, child, level FROM up ORDER BY ancestor, child"),
                   error);
}

CompanyWriter::CompanyWriter(SqliteFile &db)
    : m_folder(db.database())
    , m_folderLive(db.database())
    , m_folderArchived(db.database())
    , m_namePath(db.database())
    , m_file(db.database())
    , m_fileLive(db.database())
    , m_fileArchived(db.database())
{
    m_prepared =
        prepare(m_folder,
                QStringLiteral("INSERT INTO zar_Folder (Rec_ID, Folder_Parent, Folder_Name, IsAdmin, Icon_rec_id, "
                               "Folder_Type) VALUES (?, ?, ?, ?, ?, ?)"),
                &m_prepareError)
        && prepare(m_folderLive, QStringLiteral("INSERT INTO zar_FolderLive (rec_id) VALUES (?)"), &m_prepareError)
        && prepare(m_folderArchived, QStringLiteral("INSERT INTO ZAR_FolderArchived (rec_id) VALUES (?)"),
                   &m_prepareError)
        && prepare(m_namePath, QStringLiteral("INSERT INTO zar_folder_name_path (rec_id, TS) VALUES (?, ?)"),
                   &m_prepareError)
        && prepare(m_file,
                   QStringLiteral("INSERT INTO zar_file (rec_id, folder_rec_id, File_Name, File_Description, "
                                  "FileActualDate, File_DateUploaded, file_data) VALUES (?, ?, ?, ?, ?, ?, ?)"),
                   &m_prepareError)
        && prepare(m_fileLive, QStringLiteral("INSERT INTO zar_fileLive (rec_id) VALUES (?)"), &m_prepareError)
        && prepare(m_fileArchived, QStringLiteral("INSERT INTO ZAR_FileArchived (rec_id) VALUES (?)"),
                   &m_prepareError);
}

bool CompanyWriter::addFolder(const Folder &f, QString *error)
{
    if (!m_prepared) {
        setError(error, m_prepareError);
        return false;
    }
    const QString what = QStringLiteral("Folder %1").arg(f.recId);
    m_folder.bindValue(0, f.recId);
    m_folder.bindValue(1, f.parent);
    m_folder.bindValue(2, f.name);
    m_folder.bindValue(3, f.isAdmin ? 1 : 0);
    m_folder.bindValue(4, f.icon);
    m_folder.bindValue(5, f.type);
    if (!run(m_folder, what, error))
        return false;
    if (f.lifecycle != Lifecycle::Archived) {
        m_folderLive.bindValue(0, f.recId);
        if (!run(m_folderLive, what, error))
            return false;
    }
    if (f.lifecycle != Lifecycle::Live) {
        m_folderArchived.bindValue(0, f.recId);
        if (!run(m_folderArchived, what, error))
            return false;
    }
    m_namePath.bindValue(0, f.recId);
    m_namePath.bindValue(1, dateValue(f.timeStamp));
    return run(m_namePath, what, error);
}

bool CompanyWriter::addDocument(const Document &d, QString *error)
{
    if (!m_prepared) {
        setError(error, m_prepareError);
        return false;
    }
    if (d.lifecycle == Lifecycle::Both) {
        setError(error, QStringLiteral("Document %1: a document is either live or archived").arg(d.recId));
        return false;
    }
    const QString what = QStringLiteral("Document %1").arg(d.recId);
    const bool live = d.lifecycle == Lifecycle::Live;
    m_file.bindValue(0, d.recId);
    m_file.bindValue(1, d.folder);
    m_file.bindValue(2, d.fileName);
    m_file.bindValue(3, d.description);
    m_file.bindValue(4, dateValue(d.actualDate));
    m_file.bindValue(5, dateValue(d.uploadedDate));
    m_file.bindValue(6, live ? QVariant(d.data) : QVariant(QMetaType::fromType<QByteArray>()));
    if (!run(m_file, what, error))
        return false;
    QSqlQuery &list = live ? m_fileLive : m_fileArchived;
    list.bindValue(0, d.recId);
    return run(list, what, error);
}

ArchiveWriter::ArchiveWriter(SqliteFile &db)
    : m_insert(db.database())
{
    m_prepared = prepare(m_insert, QStringLiteral("INSERT INTO zar_FileArchive (FileID, FileData) VALUES (?, ?)"),
                         &m_prepareError);
}

bool ArchiveWriter::addBytes(qint64 fileId, const QByteArray &data, QString *error)
{
    if (!m_prepared) {
        setError(error, m_prepareError);
        return false;
    }
    m_insert.bindValue(0, fileId);
    m_insert.bindValue(1, data);
    return run(m_insert, QStringLiteral("Archived bytes of document %1").arg(fileId), error);
}

bool addCompany(SqliteFile &catalogue, qint64 comId, const QString &name, const QString &typeCode,
                qint64 liveComId, QString *error)
{
    QSqlQuery query(catalogue.database());
    if (!prepare(query,
                 QStringLiteral("INSERT INTO Com_Company (com_id, Com_db, com_type, live_com_id) VALUES (?, ?, ?, ?)"),
                 error))
        return false;
    query.bindValue(0, comId);
    query.bindValue(1, name);
    query.bindValue(2, typeCode);
    query.bindValue(3, liveComId ? QVariant(liveComId) : QVariant(QMetaType::fromType<qint64>()));
    return run(query, QStringLiteral("Catalogue row %1").arg(comId), error);
}

} // namespace demo
