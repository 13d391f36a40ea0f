#pragma once
// What an export must never harm, settled before it writes anything: the files the run relies on
// (the embedded server it reads, its report and log, the program itself) lie in no directory the
// run would replace or fill, and no second run writes into the same destination meanwhile.
// Threads: the walk's thread only (the run's preparation, before any worker starts).

#include <QString>
#include <QStringList>

#include <memory>

class QLockFile;

namespace exporting {

// A directory the run writes into at the top of the destination: its name as the walk gives it
// (a folder whose name cleans alike to a sibling's, or to no name, may carry its id instead).
struct TopDirectory {
    QString cleaned;
    qint64 id = 0;
};

// "" when nothing the run relies on lies in or under one of the top directories; otherwise a
// sentence naming the directory and what it holds. Paths are compared as the file system resolves
// them (links to what is relied on are followed; the top directories themselves are taken as named,
// since the run removes a link there as a link).
QString reliedOnInside(const QString &destination, const QList<TopDirectory> &tops, const QStringList &reliedOn);

// The files a run reading this embedded server folder relies on: the folder and every database
// file in it, as the file system resolves them.
QStringList embeddedServerFiles(const QString &folder);

// One run per destination: a lock file in it, released when the run ends, however the process
// ends (a lock left by a process that is gone is taken over).
class DestinationLock {
public:
    static const QString kFileName;
    DestinationLock();
    ~DestinationLock();
    // false, with the reason, when another run holds it or it cannot be made.
    bool lock(const QString &destination, QString *error);

private:
    std::unique_ptr<QLockFile> m_file;
};

} // namespace exporting
