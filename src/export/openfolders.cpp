#include "export/openfolders.h"

#include "names/filenames.h"

#include <QMutexLocker>

namespace exporting {

namespace {

// Enough for the folder the walk is in, its parents and the folders of the documents still with
// the workers.
constexpr size_t kKeptOpen = 16;

QString keyOf(const QStringList &names, qsizetype depth)
{
    return names.first(depth).join(QLatin1Char('/'));
}

} // namespace

OpenFolders::OpenFolders(QString destination)
    : m_destination(std::move(destination))
{
}

DirRef OpenFolders::openTop(QString *why)
{
    {
        const QMutexLocker locked(&m_lock);
        if (m_top)
            return m_top;
    }
    dirhandles::Result r;
    auto top = std::make_shared<dirhandles::Dir>(dirhandles::openTop(m_destination, &r));
    if (!r.ok) {
        *why = r.reason;
        return {};
    }
    const QMutexLocker locked(&m_lock);
    if (!m_top)
        m_top = std::move(top);
    return m_top;
}

DirRef OpenFolders::deepestOpen(const QStringList &names, qsizetype depth, qsizetype *reached)
{
    const QMutexLocker locked(&m_lock);
    for (qsizetype k = depth; k > 0; --k) {
        const QString key = keyOf(names, k);
        for (auto it = m_open.begin(); it != m_open.end(); ++it) {
            if (it->first == key) {
                m_open.splice(m_open.begin(), m_open, it);
                *reached = k;
                return m_open.front().second;
            }
        }
    }
    *reached = 0;
    return {};
}

DirRef OpenFolders::toLook(const QStringList &names, QString *why)
{
    return parentOf(names, true, why);
}

DirRef OpenFolders::toChange(const QStringList &names, QString *why)
{
    return parentOf(names, false, why);
}

DirRef OpenFolders::parentOf(const QStringList &names, bool fromKept, QString *why)
{
    const qsizetype depth = names.size() - 1;
    qsizetype reached = 0;
    DirRef dir = fromKept ? deepestOpen(names, depth, &reached) : DirRef();
    if (!dir && !(dir = openTop(why)))
        return {};
    if (reached == depth)
        return dir;
    dirhandles::Result r;
    auto below = std::make_shared<dirhandles::Dir>(dirhandles::openBelow(*dir, names.mid(reached), depth - reached, &r));
    if (!r.ok) {
        *why = r.reason;
        return {};
    }
    // Freshly reached, so as good to look from as any kept.
    const QString key = keyOf(names, depth);
    const QMutexLocker locked(&m_lock);
    m_open.remove_if([&](const std::pair<QString, DirRef> &open) { return open.first == key; });
    m_open.emplace_front(key, below);
    if (m_open.size() > kKeptOpen)
        m_open.pop_back();
    return below;
}

void OpenFolders::forget(const QStringList &names)
{
    const QString gone = names::fileSystemKey(names.join(QLatin1Char('/')));
    const QString below = gone + QLatin1Char('/');
    const QMutexLocker locked(&m_lock);
    m_open.remove_if([&](const std::pair<QString, DirRef> &open) {
        const QString key = names::fileSystemKey(open.first);
        return key == gone || key.startsWith(below);
    });
}

} // namespace exporting
