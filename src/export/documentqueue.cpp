#include "export/documentqueue.h"

#include "names/filenames.h"

#include <QHash>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace exporting {

using names::pathSeparator;

namespace {

enum class State { Queued, Taken, Done };

struct Slot {
    DocumentJob job;
    DocumentOutcome outcome;
    State state = State::Queued;
};

struct Listing {
    QString sql;
    repo::RecordSet rs;
    std::exception_ptr error;
    State state = State::Queued;
};

// Statements sent ahead and not yet taken: enough for the children of a wide folder to be on
// their way while the walk writes the first of them.
constexpr qsizetype kMaxListings = 256;
// Listings a worker sends in one batch where the server takes several: across a network a round
// trip costs more than the rows of a few folders.
constexpr size_t kListingsPerTrip = 8;
// Documents a worker takes at once where the server takes batches: their statements travel in
// one round trip, and they are written one after another as their results come.
constexpr size_t kDocumentsPerTrip = 4;

// Everything a job may write, as the walk compares names: letter case never matters here, so
// a document is waited for whenever it might stand in the way on any file system.
QStringList possibleFiles(const DocumentJob &job)
{
    QStringList keys;
    const QString base = job.folder + pathSeparator();
    if (!job.fileName.isEmpty())
        keys << (base + job.fileName).toCaseFolded();
    if (job.fallbackFree)
        keys << (base + job.fallbackName).toCaseFolded();
    return keys;
}

} // namespace

struct DocumentQueue::Impl {
    int jobs = 1;
    QString connectionText;
    repo::Connection &own;
    Work work;
    Retire retire;
    Progress progress;
    Settle settle;

    std::mutex lock;
    std::condition_variable wake; // workers: a job is queued, or stop
    std::condition_variable done; // walk: a job is done, or a worker gave up
    std::deque<Slot *> queued;    // not yet taken, oldest first
    std::deque<std::shared_ptr<Listing>> listingsQueued; // taken before documents: the walk waits for them
    int alive = 0;                // workers that may still take jobs
    int connecting = 0;           // workers still opening their connection
    int unconnected = 0;          // workers whose connection could not be opened
    QString connectError;         // why the first of them could not
    bool stopping = false;
    std::vector<std::thread> threads;

    // The walk's own (only its thread touches these).
    std::deque<std::unique_ptr<Slot>> out; // handed out, not yet taken back, in order
    QHash<QString, int> outFiles;          // possibleFiles of every job out
    QHash<QString, std::shared_ptr<Listing>> listings; // sent ahead, by statement
    std::atomic<qint64> inFlight{0};       // bytes streamed for jobs out

    // The walk's connection's policy, taken before any worker starts: a worker's connection
    // tries its statements again as the walk's does.
    repo::RetryPolicy retry;

    Impl(repo::Connection &c) : own(c), retry(c.retryPolicy()) {}

    void runWorker()
    {
        repo::Connection cn;
        cn.setRetryPolicy(retry);
        bool connected = true;
        QString why;
        try {
            cn.open(connectionText);
        } catch (const std::exception &e) {
            connected = false;
            why = QString::fromUtf8(e.what()).trimmed(); // a HuntERR::Error's what() is its description
        } catch (...) {
            connected = false;
        }
        std::unique_lock<std::mutex> held(lock);
        --connecting;
        done.notify_all();
        if (!connected) {
            // The others do its share; with none left the walk does the jobs itself.
            if (++unconnected == 1)
                connectError = why.isEmpty() ? QStringLiteral("unknown error") : why;
            --alive;
            return;
        }
        for (;;) {
            wake.wait(held, [&] { return stopping || !queued.empty() || !listingsQueued.empty(); });
            if (!listingsQueued.empty()) {
                std::vector<std::shared_ptr<Listing>> taken;
                const size_t most = cn.takesBatches() ? kListingsPerTrip : 1;
                while (!listingsQueued.empty() && taken.size() < most) {
                    taken.push_back(listingsQueued.front());
                    listingsQueued.pop_front();
                    taken.back()->state = State::Taken;
                }
                if (!listingsQueued.empty() || !queued.empty())
                    wake.notify_one();
                held.unlock();
                runListings(taken, cn);
                held.lock();
                for (const std::shared_ptr<Listing> &listing : taken)
                    listing->state = State::Done;
                done.notify_all();
                continue;
            }
            if (queued.empty())
                break;
            runDocuments(held, cn);
        }
        --alive;
        held.unlock();
        cn.close(); // in the thread that opened it, as Qt's connections want
    }

    // Takes the oldest queued documents (several where the server takes batches) and does them
    // in order, each handed back as soon as it is done. Called and returning with held locked.
    void runDocuments(std::unique_lock<std::mutex> &held, repo::Connection &cn)
    {
        std::vector<Slot *> taken;
        const size_t most = cn.takesBatches() ? kDocumentsPerTrip : 1;
        while (!queued.empty() && taken.size() < most) {
            taken.push_back(queued.front());
            queued.pop_front();
            taken.back()->state = State::Taken;
        }
        held.unlock();
        std::vector<const DocumentJob *> ahead;
        for (size_t i = 1; i < taken.size(); ++i)
            ahead.push_back(&taken[i]->job);
        for (Slot *slot : taken) {
            DocumentOutcome outcome = work(slot->job, cn, [this](qint64 n) { inFlight += n; }, ahead);
            ahead.clear(); // the first one sent the others' statements along with its own
            held.lock();
            slot->outcome = std::move(outcome);
            slot->state = State::Done;
            done.notify_all();
            held.unlock();
        }
        held.lock();
    }

    static void runListing(Listing &listing, repo::Connection &cn)
    {
        try {
            listing.rs = cn.execute(listing.sql);
        } catch (...) {
            listing.error = std::current_exception();
        }
    }

    // Several in one round trip; when the batch fails, each is sent alone, so that each listing
    // fails (or not) with its own reason.
    static void runListings(const std::vector<std::shared_ptr<Listing>> &listings, repo::Connection &cn)
    {
        if (listings.size() > 1) {
            QStringList statements;
            for (const std::shared_ptr<Listing> &listing : listings)
                statements << listing->sql;
            try {
                const QList<repo::RecordSet> results = cn.executeAll(statements);
                for (size_t i = 0; i < listings.size(); ++i)
                    listings[i]->rs = results.at(qsizetype(i));
                return;
            } catch (...) {
            }
        }
        for (const std::shared_ptr<Listing> &listing : listings)
            runListing(*listing, cn);
    }

    void doHere(Slot *slot)
    {
        slot->outcome = work(slot->job, own, [this](qint64 n) {
            inFlight += n;
            if (progress)
                progress(inFlight);
        }, {});
        slot->state = State::Done;
    }

    // Waits for the oldest job out and takes it back.
    void retireFront()
    {
        Slot *slot = out.front().get();
        {
            std::unique_lock<std::mutex> held(lock);
            while (slot->state != State::Done) {
                if (slot->state == State::Queued && alive == 0) {
                    // No worker left to take it: the walk's own connection does it.
                    for (auto it = queued.begin(); it != queued.end(); ++it) {
                        if (*it == slot) {
                            queued.erase(it);
                            break;
                        }
                    }
                    slot->state = State::Taken;
                    held.unlock();
                    doHere(slot);
                    held.lock();
                    break;
                }
                if (done.wait_for(held, std::chrono::milliseconds(100)) == std::cv_status::timeout && progress) {
                    held.unlock();
                    progress(inFlight); // a large document shows its progress while it is written
                    held.lock();
                }
            }
        }
        std::unique_ptr<Slot> taken = std::move(out.front());
        out.pop_front();
        for (const QString &key : possibleFiles(taken->job)) {
            if (--outFiles[key] <= 0)
                outFiles.remove(key);
        }
        inFlight -= taken->outcome.streamed;
        retire(taken->job, taken->outcome);
    }

    bool frontDone()
    {
        if (out.empty())
            return false;
        std::lock_guard<std::mutex> held(lock);
        return out.front()->state == State::Done;
    }
};

DocumentQueue::DocumentQueue(int jobs, const QString &connectionText, repo::Connection &own, Work work, Retire retire,
                             Progress progress, Settle settle)
    : d(std::make_unique<Impl>(own))
{
    d->settle = std::move(settle);
    d->jobs = qMax(1, jobs);
    d->connectionText = connectionText;
    d->work = std::move(work);
    d->retire = std::move(retire);
    d->progress = std::move(progress);
    if (d->jobs > 1) {
        d->alive = d->jobs;
        d->connecting = d->jobs;
        for (int i = 0; i < d->jobs; ++i)
            d->threads.emplace_back([this] { d->runWorker(); });
    }
}

DocumentQueue::~DocumentQueue()
{
    // Normally everything was taken back; when the walk was cut short by an exception, the
    // workers finish the documents they hold and the rest is dropped.
    const bool abandoned = std::uncaught_exceptions() > 0;
    if (!abandoned) {
        try {
            drain();
        } catch (...) {
        }
    }
    {
        std::lock_guard<std::mutex> held(d->lock);
        d->stopping = true;
        d->listingsQueued.clear(); // sent ahead for a walk that is over
        if (abandoned)
            d->queued.clear(); // nobody will take these back
    }
    d->wake.notify_all();
    for (std::thread &t : d->threads)
        t.join();
}

DocumentQueue::Connections DocumentQueue::connections() const
{
    Connections c;
    if (d->jobs < 2)
        return c;
    std::unique_lock<std::mutex> held(d->lock);
    d->done.wait(held, [&] { return d->connecting == 0; });
    c.asked = d->jobs;
    c.connected = d->jobs - d->unconnected;
    c.error = d->connectError;
    return c;
}

bool DocumentQueue::sendsAhead() const
{
    // The embedded server answers in this process: there is no round trip to hide, and handing
    // a listing to a worker and back cost more than running it here.
    return !d->threads.empty() && !d->own.isEmbedded();
}

int DocumentQueue::pending() const
{
    return int(d->out.size());
}

void DocumentQueue::submit(DocumentJob job)
{
    auto slot = std::make_unique<Slot>();
    slot->job = std::move(job);
    if (d->threads.empty()) {
        d->doHere(slot.get());
        d->inFlight -= slot->outcome.streamed;
        d->retire(slot->job, slot->outcome);
        return;
    }
    for (const QString &key : possibleFiles(slot->job))
        ++d->outFiles[key];
    // Taken back in its turn like any other, so the walk's order holds.
    if (d->settle && d->settle(slot->job, slot->outcome)) {
        slot->state = State::Done;
    } else {
        std::lock_guard<std::mutex> held(d->lock);
        d->queued.push_back(slot.get());
        d->wake.notify_one();
    }
    d->out.push_back(std::move(slot));
    // Take back what is done already; keep the walk from running far ahead of the workers.
    while (d->frontDone())
        d->retireFront();
    const size_t limit = size_t(4 * d->jobs + 8);
    while (d->out.size() >= limit)
        d->retireFront();
}

bool DocumentQueue::prefetch(const QString &sql)
{
    if (!sendsAhead() || d->listings.contains(sql))
        return true;
    if (d->listings.size() >= kMaxListings)
        return false;
    auto listing = std::make_shared<Listing>();
    listing->sql = sql;
    d->listings.insert(sql, listing);
    bool first = false;
    {
        std::lock_guard<std::mutex> held(d->lock);
        first = d->listingsQueued.empty();
        d->listingsQueued.push_back(listing);
    }
    // One worker woken for a queue that was empty; it wakes the next if more are waiting, so the
    // walk does not pay a wake-up for every statement it sends ahead.
    if (first)
        d->wake.notify_one();
    return true;
}

void DocumentQueue::forget(const QString &sql)
{
    const std::shared_ptr<Listing> listing = d->listings.take(sql);
    if (!listing)
        return;
    std::lock_guard<std::mutex> held(d->lock);
    const auto it = std::find(d->listingsQueued.begin(), d->listingsQueued.end(), listing);
    if (it != d->listingsQueued.end())
        d->listingsQueued.erase(it); // one on its way finishes and is dropped
}

repo::RecordSet DocumentQueue::execute(const QString &sql)
{
    const std::shared_ptr<Listing> listing = d->listings.take(sql);
    if (!listing)
        return d->own.execute(sql);
    {
        std::unique_lock<std::mutex> held(d->lock);
        if (listing->state == State::Queued) {
            // Not on its way yet: the walk sends it itself rather than wait for a worker.
            d->listingsQueued.erase(std::find(d->listingsQueued.begin(), d->listingsQueued.end(), listing));
            held.unlock();
            return d->own.execute(sql);
        }
        d->done.wait(held, [&] { return listing->state == State::Done; });
    }
    if (listing->error)
        std::rethrow_exception(listing->error);
    return listing->rs;
}

void DocumentQueue::settle(const QString &path)
{
    if (d->outFiles.isEmpty())
        return;
    const QString key = path.toCaseFolded();
    while (d->outFiles.contains(key) && !d->out.empty())
        d->retireFront();
}

void DocumentQueue::drain()
{
    while (!d->out.empty())
        d->retireFront();
}

} // namespace exporting
