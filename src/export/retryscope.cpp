#include "export/retryscope.h"

#include <QDeadlineTimer>
#include <QThread>

namespace exporting {

RetryScope::RetryScope(repo::Connection &cn, repo::RetryPolicy policy, const StopRequest *stop)
    : m_cn(cn)
    , m_before(cn.retryPolicy())
{
    policy.retries = qMax(0, policy.retries);
    policy.firstWaitMs = qMax(0, policy.firstWaitMs);
    policy.statementsRetried = m_count;
    policy.pause = [stop](int ms) {
        QDeadlineTimer until(ms);
        while (!until.hasExpired() && !stopRequested(stop))
            QThread::msleep(ulong(qBound(qint64(1), until.remainingTime(), qint64(50))));
        return !stopRequested(stop);
    };
    cn.setRetryPolicy(std::move(policy));
}

RetryScope::~RetryScope()
{
    m_cn.setRetryPolicy(m_before);
}

} // namespace exporting
