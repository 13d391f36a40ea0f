#pragma once
// Names on disk: the blanks the sign-in and the cleaners trim, the path separator, folder names
// and document titles cleaned of the characters file names cannot hold, the stored extension,
// the "[id]" names that stand in where a name cannot be used, and the one place that knows
// which names the file system refuses. The tree's paths and the export both name things here,
// so a folder is called the same in both.
//
// Threads: pure functions of their arguments, callable from any thread.

#include <QString>

namespace names {

// Blanks only, not tabs or line breaks.
QString trimBlanks(const QString &s);

// The platform's path separator, which stands for "\" in every path the export builds.
QChar pathSeparator();

// Cleans in place (the caller's text gets the replaced, untrimmed form) and returns it trimmed.
QString RemoveSpChr(QString &strFileName);
// A document title with the characters file names cannot hold turned into blanks; not trimmed.
QString cleanDocumentTitle(const QString &description);
QString GetFileExtension(const QString &pFileName);

// "[" + id + "]": the name of a folder or document whose own name cannot be used, and the suffix
// that tells apart two that clean to the same name.
QString idTag(qint64 id);
// A cleaned folder name that names no folder of its own: empty, "." or "..".
bool isNoName(const QString &cleaned);
// Whether cleanedTitle + ext can be created as a file here; when not, the document is saved
// under "[" + rec_id + "]" + ext instead.
bool titleCanBeFileName(const QString &cleanedTitle, const QString &ext);
// A name or path as the file system compares it: letter case folded where the platform's file
// systems ignore it (Windows, macOS), as it is elsewhere. Equal keys name the same entry.
QString fileSystemKey(const QString &name);

} // namespace names
