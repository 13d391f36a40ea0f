// The walk's listings sent ahead: with workers, what the walk will ask of each folder goes out on
// their connections while the walk is busy elsewhere, in the order the walk will ask for it. See
// exporter.h for the threads (all of this runs on the walk's thread).

#include "export/exporter.h"

#include "repository/statements.h"

#include <algorithm>

namespace exporting {

// Sends ahead what the walk will ask of each listed child, in the order it will ask: the
// children's statements go before whatever the walk meets after this folder's subtree. In an
// archive database most children are dropped by their probe: only the probes go ahead.
void Exporter::prefetchBelow(repo::RecordSet rs)
{
    if (!m_documents || !m_documents->sendsAhead())
        return;
    QList<qint64> ids;
    try {
        for (rs.moveFirst(); !rs.eof(); rs.moveNext())
            ids << listedId(rs);
    } catch (...) {
        // The walk meets whatever is wrong with the listing itself.
    }
    QStringList next;
    for (const qint64 id : std::as_const(ids)) {
        const QString childId = QString::number(id);
        if (m_signIn.blnArchive) {
            next << repo::statements::archivedBelowProbe(childId, m_signIn.strSelectedDb);
        } else {
            next << repo::statements::liveDocuments(childId);
            if (m_options.update)
                next << sizesQuery(childId);
            next << childFoldersQuery(childId, false);
        }
    }
    m_ahead.insert(m_ahead.begin(), next.cbegin(), next.cend());
    topUpPrefetch();
}

// In an archive database a child without archived documents below it gets no directory: of the
// children whose names clean alike, the lowest that does keeps the name.
NameOwners Exporter::subfolderOwners(const repo::RecordSet &rs)
{
    if (!m_signIn.blnArchive)
        return folderOwners(rs);
    return folderOwners(rs, [this](qint64 id) {
        try {
            return listing(repo::statements::archivedBelowProbe(QString::number(id), m_signIn.strSelectedDb)).recordCount() >= 1;
        } catch (...) {
            return true; // the walk meets the failure at this child and logs it
        }
    });
}

// A child the walk leaves out: what was sent ahead for it is not waited for.
void Exporter::dropAhead(qint64 childId)
{
    if (!m_documents)
        return;
    const QString id = QString::number(childId);
    for (const QString &sql : {m_signIn.blnArchive ? repo::statements::archiveDocuments(id, m_signIn.strSelectedDb)
                                                   : repo::statements::liveDocuments(id),
                               sizesQuery(id), childFoldersQuery(id, false)}) {
        m_documents->forget(sql);
        const auto it = std::find(m_ahead.begin(), m_ahead.end(), sql);
        if (it != m_ahead.end())
            m_ahead.erase(it);
    }
}

void Exporter::topUpPrefetch()
{
    while (!m_ahead.empty() && m_documents->prefetch(m_ahead.front()))
        m_ahead.pop_front();
}

repo::RecordSet Exporter::listing(const QString &sql)
{
    if (!m_documents)
        return m_signIn.cnDb().execute(sql);
    if (!m_ahead.empty() && m_ahead.front() == sql)
        m_ahead.pop_front(); // asked for before it could be sent ahead
    const repo::RecordSet rs = m_documents->execute(sql);
    topUpPrefetch();
    return rs;
}

} // namespace exporting
