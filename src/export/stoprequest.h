#pragma once
// A request to stop an export run early: no new folder or document starts, documents in flight
// are abandoned (their temporary files removed), and run() returns what was written so far with
// ExportResult::stopped set. The caller owns it and hands it to the run in ExportOptions::stop.
//
// Threads: request() may be called from any thread and from a signal handler (it only stores to
// a lock-free atomic); the walk's thread and the workers read it; reset() only between runs.

#include <atomic>

namespace exporting {

class StopRequest {
public:
    // why: what asked (a signal number on the command line, 1 for a button); never 0.
    void request(int why = 1) noexcept { m_why.store(why == 0 ? 1 : why, std::memory_order_relaxed); }
    bool requested() const noexcept { return m_why.load(std::memory_order_relaxed) != 0; }
    int why() const noexcept { return m_why.load(std::memory_order_relaxed); }
    void reset() noexcept { m_why.store(0, std::memory_order_relaxed); }

private:
    static_assert(std::atomic<int>::is_always_lock_free, "a signal handler must be able to set it");
    std::atomic<int> m_why{0};
};

// A StopRequest that is never set, for a run given none.
inline bool stopRequested(const StopRequest *stop)
{
    return stop && stop->requested();
}

} // namespace exporting
