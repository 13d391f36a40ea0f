#pragma once
// The one place that touches a file's times through the operating system.

#include <QDateTime>
#include <QString>

// Gives the file the document's date. On Windows that is the creation time, and the access and
// write times stay as they are. Elsewhere the creation time cannot be set, so the modification
// time takes the date (the access time stays), which is what a file listing shows.
// False when the file could not be opened or its time not set.
bool setDocumentFileTime(const QString &path, const QDateTime &when);
