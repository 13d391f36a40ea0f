#pragma once
// The repository's tables as the embedded server stores them: one SQLite file per database in
// the server's folder. Shared by the demo repository and the large benchmark repository so the
// two can never drift apart.
//
// Layout rules kept here:
//  - every text column compares and sorts without regard to case (COLLATE NOCASE), as the
//    SQL Server collation of a real repository does;
//  - ids are INTEGER, dates TEXT "YYYY-MM-DD HH:MM:SS.mmm" or NULL, bytes BLOB;
//  - rollback journal, never WAL, so a closed database is exactly one file.

#include <QByteArray>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

namespace demo {

// One database file of the embedded server, open for writing while this object lives.
class SqliteFile {
public:
    explicit SqliteFile(const QString &path);
    ~SqliteFile();
    SqliteFile(const SqliteFile &) = delete;
    SqliteFile &operator=(const SqliteFile &) = delete;

    // Creates the file if needed. An existing file is written into as it stands.
    bool open(QString *error);
    // Closes the file; nothing but the .sqlite file remains afterwards.
    void close();
    QSqlDatabase database() const;
    const QString &path() const { return m_path; }

    bool exec(const QString &sql, QString *error);
    bool begin(QString *error) { return exec(QStringLiteral("BEGIN"), error); }
    bool commit(QString *error) { return exec(QStringLiteral("COMMIT"), error); }

private:
    QString m_path;
    QString m_connectionName;
};

// The file name of database `name` in the server folder `dir`.
QString databaseFile(const QString &dir, const QString &name);

// Master catalogue: Com_Company(com_id, Com_db, com_type, live_com_id).
bool createCatalogueTables(SqliteFile &db, QString *error);
// Company database: folders, folder matrix, folder name path, documents, live/archived lists.
// Indexes are separate so a bulk load can add them after the rows.
bool createCompanyTables(SqliteFile &db, QString *error);
bool createCompanyIndexes(SqliteFile &db, QString *error);
// Archive database: zar_FileArchive(FileID, FileData).
bool createArchiveTables(SqliteFile &db, QString *error);

// Fills zar_folder_matrix from zar_Folder's parent links: one row per ancestor and proper
// descendant, relative_level_no = depth difference. Call once, after every folder is added.
bool buildFolderMatrix(SqliteFile &db, QString *error);

enum class Lifecycle {
    Live,     // listed in zar_FolderLive / zar_fileLive
    Archived, // listed in ZAR_FolderArchived / ZAR_FileArchived
    Both,     // listed in both folder lists (folders only; a repository inconsistency)
};

struct Folder {
    qint64 recId = 0;
    qint64 parent = 0;
    QString name;
    QString type; // "ROOT", "SITE", "CABINET", "ADMIN", "RECYCLE", "FOLDER"
    int icon = 0;
    bool isAdmin = false;
    Lifecycle lifecycle = Lifecycle::Live;
    QString timeStamp; // zar_folder_name_path.TS
};

struct Document {
    qint64 recId = 0;
    qint64 folder = 0;
    QString fileName;
    QString description;
    QByteArray data; // live: stored in zar_file.file_data; archived: goes to the archive database
    QString actualDate;   // empty = NULL
    QString uploadedDate; // empty = NULL
    Lifecycle lifecycle = Lifecycle::Live;
};

// Adds rows to an open company database through prepared statements. Keep the writer's lifetime
// inside the SqliteFile's, and wrap bulk work in begin()/commit() on the file.
class CompanyWriter {
public:
    explicit CompanyWriter(SqliteFile &db);
    bool addFolder(const Folder &folder, QString *error);
    // Archived documents get a NULL file_data here; their bytes belong in the archive database.
    bool addDocument(const Document &document, QString *error);

private:
    QSqlQuery m_folder, m_folderLive, m_folderArchived, m_namePath;
    QSqlQuery m_file, m_fileLive, m_fileArchived;
    bool m_prepared = false;
    QString m_prepareError;
};

class ArchiveWriter {
public:
    explicit ArchiveWriter(SqliteFile &db);
    bool addBytes(qint64 fileId, const QByteArray &data, QString *error);

private:
    QSqlQuery m_insert;
    bool m_prepared = false;
    QString m_prepareError;
};

// One catalogue row. liveComId 0 writes NULL.
bool addCompany(SqliteFile &catalogue, qint64 comId, const QString &name, const QString &typeCode,
                qint64 liveComId, QString *error);

} // namespace demo
