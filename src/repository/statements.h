#pragma once
// Every statement the tool sends, built in one place. They are put together by plain
// concatenation of fixed fragments that keep their own blanks (doubled blanks included), with
// ids inserted unquoted as decimal text and names as the caller prepared them: the texts are
// those SQL Server has always been sent, and the SQL trace shows them exactly so.
//
// Threads: pure functions of their arguments, callable from any thread.

#include <QString>

namespace repo::statements {

// Sign-in: the catalogue's company databases, a database's existence, an archive's live pair.
QString companyDatabases();
QString databaseExists(const QString &name); // name inserted as given, quotes not doubled
QString liveDatabaseOf(const QString &archiveDb);

// The tree: the first level below a start folder, a folder's children (live; live and archived),
// and whether archived documents lie in or below a folder.
QString firstLevel(const QString &startFolderId);
QString liveChildren(const QString &parentId);
QString liveAndArchivedChildren(const QString &parentId);
QString archivedBelowProbe(const QString &folderId, const QString &archiveDb);

// The export: sub-folders of a folder (the first level below a ticked folder is ordered with a
// trailing blank, deeper levels without), a folder's documents, one document with its bytes, and
// its two dates as fixed-format text.
QString liveSubFolders(const QString &folderId, bool firstLevel);
QString archiveSubFolders(const QString &folderId);
QString liveDocuments(const QString &folderId);
QString archiveDocuments(const QString &folderId, const QString &archiveDb);
QString liveDocument(const QString &recId);
QString archiveDocument(const QString &recId, const QString &archiveDb);
QString documentDates(const QString &recId);
// --update only: every listed document of a folder with its rec_id, the length of its bytes
// (File_Size, NULL when it has none) and its two dates as documentDates gives them, so a document
// whose file is already there with that size and date costs no statement of its own.
QString liveDocumentSizes(const QString &folderId);
QString archiveDocumentSizes(const QString &folderId, const QString &archiveDb);

} // namespace repo::statements
