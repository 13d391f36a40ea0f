#pragma once
// A document fetched for the walk: its statement run, its bytes streamed to a temporary file
// beside its own and the file dated there. A run makes one fetcher once its settings and its disk
// layer are fixed, and the workers share it.
//
// Threads: fetch() may run on any thread at once (each worker on its own connection, or the
// walk's thread with one job). A fetcher holds only what a run fixes before its first document
// and the disk layer (which locks for itself); it never touches the walk's bookkeeping or the
// error trail. Failures travel back in the outcome as they were raised.

#include "export/documentqueue.h"
#include "export/stoprequest.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace exporting {

class ExportDisk;

// What a run fixes for every document before it hands out the first one.
struct FetchSettings {
    bool archive = false; // the archive database's statements, with archiveDb
    QString archiveDb;
    bool update = false;  // a file already there with the document's size and date is kept
    bool digests = false; // each document's SHA-256 is taken on its way to the file
    const StopRequest *stop = nullptr; // asked to stop: no document starts, one streaming ends
    QDateTime since; // valid: a document dated before it is not fetched (its date is read first)
};

class DocumentFetcher {
public:
    DocumentFetcher(FetchSettings settings, ExportDisk &disk);

    // Never throws: what fails is in the outcome. ahead: the jobs cn does next (see DocumentQueue).
    DocumentOutcome fetch(const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted,
                          const std::vector<const DocumentJob *> &ahead = {}) const;
    // An update's document whose file is there as its folder's size listing gave it: kept without
    // a connection (true, o holds the outcome). When its file is not, the job is marked so, for
    // the check may have dated the file already. Never throws.
    bool settledAsListed(DocumentJob &job, DocumentOutcome &o) const;

private:
    // One try: the document's statement, its bytes to a temporary file and its date, into o;
    // ahead: statements sent in the same batch for the documents after it.
    void fetchOnce(const DocumentJob &job, repo::Connection &cn, const DocumentQueue::Counted &counted,
                   DocumentOutcome &o, const QStringList &ahead) const;
    QString documentStatement(qint64 recId) const;
    // The statements of the jobs ahead that can travel with a document's own.
    QStringList statementsAhead(const std::vector<const DocumentJob *> &ahead) const;
    // The streamed document written under a temporary name beside its file.
    void stage(const DocumentJob &job, repo::ValueReader &bytes, DocumentOutcome &o) const;
    // The document's file is there with size and the date dateOf gives (asked for only once the
    // size matches; it raises when the date cannot be read).
    bool keptUnchanged(const DocumentJob &job, qint64 size, const std::function<QDateTime()> &dateOf,
                       DocumentOutcome &o) const;
    // keptUnchanged with the size and date its folder's size listing gave: no statement at all.
    bool keptAsListed(const DocumentJob &job, DocumentOutcome &o) const;
    // The document's date from the repository (the result of the date statement sent in the batch
    // with its bytes) given to the staged file; raises on failure.
    // *applied: the date the file took (invalid when none did).
    void date(repo::Connection &cn, qint64 recId, const QString &filePath, QDateTime *applied) const;

    const FetchSettings m_settings;
    ExportDisk &m_disk;
};

} // namespace exporting
