#pragma once
// An export run's retry policy on the walk's connection (the workers copy it when they start),
// with the count of statements sent again, and the policy the connection had before put back
// however the run ends: the window's tree browsing keeps its own.
//
// Threads: made and destroyed on the walk's thread. The policy's pause runs on whichever
// connection's thread broke (it only reads the stop request); the count is atomic.

#include "export/stoprequest.h"
#include "repository/connection.h"

namespace exporting {

class RetryScope {
public:
    // A stop request ends a pause at once: the statement then fails as it did and the run stops.
    RetryScope(repo::Connection &cn, repo::RetryPolicy policy, const StopRequest *stop);
    ~RetryScope();
    RetryScope(const RetryScope &) = delete;
    RetryScope &operator=(const RetryScope &) = delete;

    qint64 statementsRetried() const { return *m_count; }

private:
    repo::Connection &m_cn;
    const repo::RetryPolicy m_before;
    const std::shared_ptr<std::atomic<qint64>> m_count = std::make_shared<std::atomic<qint64>>(0);
};

} // namespace exporting
