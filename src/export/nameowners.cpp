#include "export/nameowners.h"

#include "names/filenames.h"

#include <algorithm>

namespace exporting {

using names::fileSystemKey;
using tree::FolderTree;
using tree::folderIdOfKey;

namespace {

// A name that is no name (or means this directory or its parent) would put the folder on top of
// another one, and one the file system refuses (too long, a NUL in it) would lose it: it keeps its
// id instead, as documents do.
bool usableFolderName(const QString &cleaned)
{
    return names::titleCanBeFileName(cleaned, {});
}

void askFolderName(NameOwners &owners, const QString &cleaned, qint64 id)
{
    if (usableFolderName(cleaned))
        owners.add(cleaned, id);
    else
        owners.claim(names::idTag(id), id);
}

} // namespace

void NameOwners::add(const QString &name, qint64 id)
{
    QList<qint64> &ids = m_asking[fileSystemKey(name)];
    if (!ids.contains(id)) // a folder listed twice (live and archived) is one folder
        ids.append(id);
}

void NameOwners::claim(const QString &name, qint64 id)
{
    m_owner.insert(fileSystemKey(name), id);
}

void NameOwners::settle(const std::function<bool(qint64 id)> &takesPart)
{
    for (auto it = m_asking.begin(); it != m_asking.end(); ++it) {
        QList<qint64> &ids = it.value();
        if (m_owner.contains(it.key()))
            continue;
        std::sort(ids.begin(), ids.end());
        const auto first = ids.size() < 2 || !takesPart ? ids.cbegin() : std::find_if(ids.cbegin(), ids.cend(), takesPart);
        m_owner.insert(it.key(), first == ids.cend() ? ids.first() : *first);
    }
}

bool NameOwners::owns(const QString &name, qint64 id) const
{
    const auto it = m_owner.constFind(fileSystemKey(name));
    return it == m_owner.cend() || it.value() == id;
}

qint64 listedId(const repo::RecordSet &rs)
{
    const QVariant value = rs.value(QStringLiteral("rec_id"));
    bool ok = false;
    const qint64 id = value.toLongLong(&ok);
    if (ok)
        return id;
    return qint64(value.toDouble());
}

NameOwners documentOwners(repo::RecordSet rs)
{
    NameOwners owners;
    try {
        for (rs.moveFirst(); !rs.eof(); rs.moveNext()) {
            const qint64 id = listedId(rs);
            const QString title = names::cleanDocumentTitle(rs.text(QStringLiteral("File_Description")));
            const QString ext = names::GetFileExtension(rs.text(QStringLiteral("File_Name")));
            const QString tag = names::idTag(id);
            if (names::titleCanBeFileName(title, ext))
                owners.add(title + ext, id);
            else // the fallback name, as the walk gives it
                owners.claim(tag + (names::titleCanBeFileName(tag, ext) ? ext : QString()), id);
        }
    } catch (...) {
        // The walk meets whatever is wrong with the listing itself.
    }
    owners.settle();
    return owners;
}

NameOwners folderOwners(repo::RecordSet rs, const std::function<bool(qint64 id)> &takesPart)
{
    NameOwners owners;
    try {
        for (rs.moveFirst(); !rs.eof(); rs.moveNext()) {
            const qint64 id = listedId(rs);
            QString name = rs.text(QStringLiteral("folder_name"));
            askFolderName(owners, names::RemoveSpChr(name), id);
        }
    } catch (...) {
        // As above.
    }
    owners.settle(takesPart);
    return owners;
}

QString folderDirectoryName(const QString &cleaned, qint64 id, const NameOwners &owners,
                            const std::function<bool(const QString &name)> &taken, bool *renamed)
{
    const QString tag = names::idTag(id);
    QString name = usableFolderName(cleaned) ? cleaned : tag;
    *renamed = false;
    while (!owners.owns(name, id) || taken(name)) {
        name += QLatin1Char(' ') + tag;
        *renamed = true;
    }
    return name;
}

const FolderTree::Node *tickedParent(const FolderTree::Node *node)
{
    const FolderTree::Node *up = node->parent;
    return up && up->checked && folderIdOfKey(up->key) != 1 ? up : nullptr;
}

QHash<const FolderTree::Node *, NameOwners> tickedOwners(const FolderTree &tree)
{
    QHash<const FolderTree::Node *, NameOwners> owners;
    for (int index = 1; index <= tree.count(); ++index) {
        const FolderTree::Node *node = tree.node(index);
        const qint64 id = folderIdOfKey(node->key);
        if (!node->checked || id == 1)
            continue;
        QString name = node->tag;
        askFolderName(owners[tickedParent(node)], names::RemoveSpChr(name), id);
    }
    for (NameOwners &siblings : owners)
        siblings.settle();
    return owners;
}

} // namespace exporting
