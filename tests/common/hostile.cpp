#include "hostile.h"

#include "testsupport.h"

QString writeHostileServer(const QString &demoServer, const QString &dir, QString *error)
{
    if (!copyFolder(demoServer, dir)) {
        *error = QStringLiteral("cannot copy the demo server into ") + dir;
        return {};
    }
    const QStringList statements = {
        QStringLiteral("CREATE TABLE keyless (Rec_ID INTEGER NOT NULL, Folder_Parent INTEGER NOT NULL, "
                       "Folder_Name TEXT COLLATE NOCASE, IsAdmin INTEGER NOT NULL DEFAULT 0, Icon_rec_id INTEGER, "
                       "Folder_Type TEXT COLLATE NOCASE)"),
        QStringLiteral("INSERT INTO keyless SELECT * FROM zar_Folder"),
        QStringLiteral("DROP TABLE zar_Folder"),
        QStringLiteral("ALTER TABLE keyless RENAME TO zar_Folder"),
        QStringLiteral("CREATE INDEX ix_zar_Folder_parent ON zar_Folder (Folder_Parent, Folder_Name)"),
        QStringLiteral("INSERT INTO zar_Folder (Rec_ID, Folder_Parent, Folder_Name, Icon_rec_id, Folder_Type) VALUES "
                       "(101, 1, '?\?\?', 1, 'FOLDER'), (102, 1, '..', 1, 'FOLDER'), (103, 1, '.', 1, 'FOLDER'), "
                       "(104, 1, '<>|', 1, 'FOLDER'), (105, 1, '   ', 1, 'FOLDER'), (106, 14, '|', 1, 'FOLDER'), "
                       "(107, 1, 'X:Y', 1, 'FOLDER'), (108, 1, 'X*Y', 1, 'FOLDER'), "
                       "(109, 1, 'Esc' || char(27) || '[31mRed' || char(10) || 'Line', 1, 'FOLDER'), "
                       "(110, 1, 'Blocked', 1, 'FOLDER'), (111, 110, 'Report.pdf', 1, 'FOLDER'), "
                       "(120, 1, 'Loop', 1, 'FOLDER'), (121, 120, 'Again', 1, 'FOLDER'), (121, 121, 'Again', 1, 'FOLDER'), "
                       "(200, 1, 'Deep', 1, 'FOLDER')"),
        // The chain in one statement.
        QStringLiteral("INSERT INTO zar_Folder (Rec_ID, Folder_Parent, Folder_Name, Icon_rec_id, Folder_Type) "
                       "WITH RECURSIVE chain(id) AS (SELECT 201 UNION ALL SELECT id + 1 FROM chain WHERE id < 20200) "
                       "SELECT id, id - 1, 'level ' || id, 1, 'FOLDER' FROM chain"),
        QStringLiteral("INSERT OR IGNORE INTO zar_FolderLive SELECT DISTINCT Rec_ID FROM zar_Folder WHERE Rec_ID > 100"),
        // Only what the tree shows needs the matrix and the name path.
        QStringLiteral("INSERT OR IGNORE INTO zar_folder_matrix SELECT DISTINCT Folder_Parent, Rec_ID, 1 FROM zar_Folder "
                       "WHERE Rec_ID BETWEEN 101 AND 200 AND Folder_Parent <> Rec_ID"),
        QStringLiteral("INSERT OR IGNORE INTO zar_folder_name_path SELECT DISTINCT Rec_ID, '' FROM zar_Folder "
                       "WHERE Rec_ID BETWEEN 101 AND 200"),
        QStringLiteral("INSERT INTO zar_file (rec_id, folder_rec_id, File_Name, File_Description, file_data) VALUES "
                       "(5001, 101, 'a.txt', 'Same:Title', CAST('first' AS BLOB)), "
                       "(5002, 101, 'b.txt', 'Same?Title', CAST('second' AS BLOB)), "
                       "(5003, 110, 'r.pdf', 'Report', CAST('blocked report' AS BLOB)), "
                       "(5004, 109, 'e.txt', 'Bell' || char(7) || 'Title', CAST('bell' AS BLOB)), "
                       "(5005, 102, 'up.txt', 'Up', CAST('dot dot' AS BLOB))"),
        QStringLiteral("INSERT INTO zar_fileLive SELECT rec_id FROM zar_file WHERE rec_id BETWEEN 5001 AND 5005"),
    };
    demo::SqliteFile acme(demo::databaseFile(dir, QStringLiteral("Acme")));
    if (!acme.open(error))
        return {};
    for (const QString &sql : statements)
        if (!acme.exec(sql, error))
            return {};
    acme.close();
    return dir;
}
