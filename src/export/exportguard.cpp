// The run's guards, before anything is written: what it relies on lies in no directory it writes
// into, and no other run writes into its destination.

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/replaced.h"
#include "export/runguards.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace exporting {

using names::RemoveSpChr;
using tree::FolderTree;
using tree::folderIdOfKey;

namespace {

// Only a ticked folder with no ticked folder above it opens a directory of its own at the top;
// everything the run writes lies inside one of those.
QList<TopDirectory> topDirectories(const FolderTree &tree)
{
    QList<TopDirectory> tops;
    for (int i = 1; i <= tree.count(); ++i) {
        const FolderTree::Node *node = tree.node(i);
        const qint64 id = qint64(folderIdOfKey(node->key));
        if (!node->checked || id == 1 || tickedParent(node))
            continue;
        QString tag = node->tag;
        tops.append({RemoveSpChr(tag), id});
    }
    return tops;
}

} // namespace

QStringList existingTopEntries(const FolderTree &tree, const QString &destination)
{
    const QDir dest(destination);
    const NameOwners siblings = tickedOwners(tree).value(nullptr);
    QSet<QString> taken;
    QStringList existing;
    for (const TopDirectory &top : topDirectories(tree)) {
        // The names the walk gives (nameowners.h).
        bool renamed = false;
        const QString name = folderDirectoryName(top.cleaned, top.id, siblings, [&](const QString &n) {
            return taken.contains(names::fileSystemKey(n));
        }, &renamed);
        taken.insert(names::fileSystemKey(name));
        const QFileInfo entry(dest.filePath(name));
        if (entry.exists() || entry.isSymLink())
            existing << QDir::toNativeSeparators(entry.filePath());
    }
    return existing;
}

QString Exporter::refusal(const ExportOptions &options) const
{
    const QList<TopDirectory> tops = topDirectories(m_tree.tree());
    QStringList reliedOn = options.reliedOn;
    const QString folder = options.logFolder.isEmpty()
                               ? documentsFolder()
                               : options.logFolder;
    reliedOn << folder << QCoreApplication::applicationFilePath();
    reliedOn << embeddedServerFiles(m_signIn.cnDb().embeddedFolder());
    return reliedOnInside(m_signIn.DestinationPath, tops, reliedOn);
}

QString Exporter::lockDestination()
{
    auto lock = std::make_unique<DestinationLock>();
    QString error;
    if (!lock->lock(m_signIn.DestinationPath, &error))
        return error;
    m_lock = std::move(lock);
    return {};
}

} // namespace exporting
