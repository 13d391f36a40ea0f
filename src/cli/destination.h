#pragma once
// The export's --dest: an existing directory, or one that the run creates with its parents.

#include <QString>
#include <QStringList>

namespace cli {

struct Destination {
    QString path;         // absolute, native separators
    bool missing = false; // the run has to create it
};

// Refuses only what can never become a directory: an empty name, or a file on the way. The
// error names the path given; the caller says what it was for.
bool checkDestination(const QString &text, Destination *destination, QString *error);

// Creates a missing destination with its parents; nothing to do for an existing one.
bool createDestination(const Destination &destination, QString *error);

// The directories a real run creates for a missing destination, from the top down.
QStringList directoriesToMake(const Destination &destination);

// What the summary line adds about the destination ("" when it existed).
QString destinationNote(const Destination &destination, bool dryRun);

} // namespace cli
