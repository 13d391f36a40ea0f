#pragma once
// Whether the export log can take failures, asked before a run starts.

#include <QString>

namespace cli {

// The log folder (logDir, else the documents folder) is made if need be and a file is written
// into it and removed. False with the reason, in words for the person, when that fails.
bool logFolderTakesLines(const QString &logDir, QString *problem);

} // namespace cli
