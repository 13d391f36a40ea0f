#pragma once
// Documents fetched and written while the walk goes on. The walk decides everything that decides
// a name (directory order, names, collision suffixes) and hands each document over as a job;
// workers, each on a connection of its own, run the document's statement, stream its bytes to a
// temporary file beside its own and date it; the walk then takes the outcomes back strictly in the
// order it handed the jobs out, puts the files in place and does the bookkeeping (counts, log
// lines, the error trail, the report) itself. So the disk, the log and the report come out the
// same for any number of workers.
// With one job there are no threads: each document is done on the walk's own connection at once.
// With workers on a server across a network, a worker takes a few documents at once, whose
// statements then travel in one round trip, and the walk's own listings are sent ahead on the
// workers' connections, so that the walk does not wait a round trip for every folder either.
//
// Threads: a DocumentQueue is made, used and destroyed on the walk's thread; retire and progress
// are called there too. Work runs on the workers' threads (or the walk's, with one job), each
// worker with the connection it opened and closes itself; it must touch only what it is given.

#include "repository/connection.h"

#include <QDateTime>
#include <QString>

#include <exception>
#include <functional>
#include <memory>
#include <vector>

namespace exporting {

// --update: a document's size and date as its folder's size listing gave them.
struct ListedFacts {
    qint64 size = -1;               // -1: not listed there (the document's own statements tell)
    QDateTime date;                 // invalid: undated
    std::exception_ptr dateError;   // its date text could not be read
};

// One document as the walk hands it over.
struct DocumentJob {
    qint64 recId = 0;
    QString folder;       // the directory it goes to
    QString listedTitle;  // File_Description as the folder's listing gave it (status line)
    QString fileName;     // its name under its title, ext included; "" when the title cannot be one
    QString fallbackName; // "[id].ext"
    bool fallbackFree = false; // it can be a file name and this run has not written it
    bool renamed = false;      // fileName carries the id beside the title (a collision)
    qint64 serial = 0;         // the walk's count of jobs handed out, this one included
    ListedFacts listed;        // --update only
    bool notAsListed = false;  // --update: the walk found its file other than listed (written again)
};

// What became of it. Errors are kept as they were raised, for the walk to hand to the error trail.
struct DocumentOutcome {
    QString description;           // File_Description as the document's own statement gave it
    std::exception_ptr readError;  // the statement failed, gave no row or no bytes: nothing written
    std::exception_ptr writeError; // the file could not be written under its title (not a name problem)
    bool fellBack = false;         // the title could not be a file name here
    std::exception_ptr fallbackError;
    QString written; // the file staged (its final path), for the walk to put in place; "" when none
    qint64 bytes = 0;
    QString sha256;  // of the bytes written, when a report wants it
    QDateTime date;  // the date the staged file took; invalid when none
    QString kept;    // --update: the file already there with the document's size and date
    std::exception_ptr keptDateError; // --update: the date statement failed (the file is written)
    qint64 streamed = 0; // bytes read from the repository on the way (told as progress)
    std::exception_ptr dateError;
    bool abandoned = false; // the run was asked to stop first: nothing written, nothing staged
    QDateTime before;       // --since: the document's date, before the cut (not fetched)
    qint64 retries = 0;     // tries again on a reopened connection, its statements' and its stream's
};

class DocumentQueue {
public:
    // Does one job on a connection; calls counted with each piece of bytes as it passes. Never throws.
    using Counted = std::function<void(qint64 bytes)>;
    // ahead: the jobs the same connection does right after this one, in order (a worker takes
    // several at once where the server takes batches), so their statements may travel with its own.
    using Work = std::function<DocumentOutcome(const DocumentJob &, repo::Connection &, const Counted &counted,
                                               const std::vector<const DocumentJob *> &ahead)>;
    // Takes one outcome back, on the walk's thread, in the order the jobs were handed out.
    using Retire = std::function<void(const DocumentJob &, DocumentOutcome &)>;
    // Told, on the walk's thread, of the bytes written for documents not yet taken back.
    using Progress = std::function<void(qint64 bytesInFlight)>;
    // Decides a job on the walk's thread without a connection where it can (true: the outcome is
    // final; false: the job, maybe marked, goes to a worker). Handing such a job to a worker and
    // back cost more than deciding it.
    using Settle = std::function<bool(DocumentJob &, DocumentOutcome &)>;

    // jobs > 1: that many workers, each opening a connection with connectionText; own is the
    // walk's connection (used for every job when jobs is 1, or when no worker could connect).
    DocumentQueue(int jobs, const QString &connectionText, repo::Connection &own, Work work, Retire retire,
                  Progress progress, Settle settle = {});
    ~DocumentQueue(); // every job taken back first
    DocumentQueue(const DocumentQueue &) = delete;
    DocumentQueue &operator=(const DocumentQueue &) = delete;

    void submit(DocumentJob job);
    // A statement the walk is about to send (a folder's listing): with workers, one of them sends
    // it ahead on its connection while the walk is busy elsewhere.
    // false when enough statements are on their way already (try again later).
    bool prefetch(const QString &sql);
    // The walk will not ask for it after all.
    void forget(const QString &sql);
    // The statement's record set: the one sent ahead (waited for if it is on its way), else sent
    // now on the walk's connection. Raises what sending it raised.
    repo::RecordSet execute(const QString &sql);
    // Takes outcomes back until no job still out may write path (full path, any letter case).
    void settle(const QString &path);
    // Takes every outcome back.
    void drain();
    // Whether prefetch sends anything ahead (workers, and a server with round trips to hide).
    bool sendsAhead() const;
    // The workers asked for and those that could open their connection (waits until each has
    // tried); error: why the first that could not did not. One job: 1 of 1.
    struct Connections {
        int asked = 1;
        int connected = 1;
        QString error;
    };
    Connections connections() const;
    // Jobs handed out and not yet taken back.
    int pending() const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace exporting
