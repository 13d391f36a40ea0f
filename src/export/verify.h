#pragma once
// Proof of an export: every file an export report lists is read again and compared with its
// record (present, size, SHA-256 of the content, date), and, given the repository, with the
// document as the repository holds it now.

#include "export/exportreport.h"

#include <QSet>
#include <QStringList>

namespace repo {
class Connection;
}

namespace exporting {

struct FileCheck {
    QStringList differences; // "missing", "size", "content", "date"; empty when the file matches
    QString detail;          // what was expected and found, in words
    qint64 size = -1;        // of the file on disk; -1 when there is none
    QString sha256;          // of the file on disk; "" when it was not read
};

// A report's path, "/"-separated, names something inside the destination: not empty, not
// absolute, no "." or ".." or empty name in it.
bool staysInside(const QString &rel);

// Paths are taken relative to the destination and never leave it: a record whose path would
// ("..", absolute, empty names) is reported as missing. Links are not followed.
FileCheck checkFile(const QString &destination, const ExportRecord &record);
// A folder record: its directory is there, inside the destination, reached through no link.
FileCheck checkFolder(const QString &destination, const ExportRecord &record);
// What is in the destination that no record names (directories holding named entries count as
// named): "/"-separated relative paths, sorted. Links are listed, never entered.
QStringList unnamedEntries(const QString &destination, const QSet<QString> &named);

// The repository's side: the document re-read with the statement the export sends and its date
// with the date statement, compared with the file's digest, size and date. Differences are
// "repository missing", "repository size", "repository content", "repository date".
// Raises HuntERR::Error when a statement fails.
FileCheck checkRepository(repo::Connection &cn, bool archive, const QString &archiveDb, const ExportRecord &record,
                          const FileCheck &file);

} // namespace exporting
