#pragma once
// The export's output folders, --dest and --log-dir: existing directories, or ones that the run
// creates with their parents, after the sign-in and the folder paths were checked, so a refused
// run leaves nothing behind.

#include <QString>
#include <QStringList>

namespace cli {

struct Destination {
    QString path;         // absolute, native separators; "" when not given
    bool missing = false; // the run has to create it
};

struct OutputFolders {
    Destination dest;
    Destination log; // path "" without --log-dir: the Documents folder
};

// Refuses only what can never become a directory: an empty name, or a file on the way. The
// error names the path given; the caller says what it was for.
bool checkDestination(const QString &text, Destination *destination, QString *error);

// Both folders checked; error is the message to print.
bool checkOutputFolders(const QString &destText, const QString *logText, OutputFolders *folders, QString *error);

// Creates what is missing of both, with parents.
bool createOutputFolders(const OutputFolders &folders, QString *error);

// The directories a real run creates for a missing destination, from the top down.
QStringList directoriesToMake(const Destination &destination);

// What the summary line adds about the destination ("" when it existed).
QString destinationNote(const Destination &destination, bool dryRun);

} // namespace cli
