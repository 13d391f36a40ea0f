#pragma once
// What an export of the demo repository must leave on disk, worked out by reading the SQLite
// files directly (not through the tool's statements), and the comparison of a written tree with
// it: every directory, every file name, every byte and every date.

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>

struct ExpectedTree {
    struct Candidate {
        QByteArray bytes;
        QDateTime date; // invalid: the file keeps the time it was written
    };
    QSet<QString> dirs;                     // "/"-separated, relative to the destination
    QHash<QString, QList<Candidate>> files; // more than one: written twice, the later one stays

    // A directory made afresh: whatever was below it is gone.
    void replace(const QString &rel);
};

class RepositoryReader {
public:
    // The company database; with archive set, documents are the archived ones with their bytes
    // from the archive database, and folders those with archived documents in or below them.
    RepositoryReader(const QString &server, const QString &company, const QString &archive = {});
    ~RepositoryReader();
    RepositoryReader(const RepositoryReader &) = delete;
    RepositoryReader &operator=(const RepositoryReader &) = delete;

    bool ok() const { return m_ok; }
    // The folder's documents as files in the directory rel.
    void addDocuments(qint64 folder, const QString &rel, ExpectedTree &out) const;
    // The folder at rel with its documents and its whole subfolder tree.
    void addSubtree(qint64 folder, const QString &rel, ExpectedTree &out) const;
    // Every child of the root ticked.
    void addEverything(ExpectedTree &out) const;

    // The directory a folder gets below parent ("" or ending in "/") in a run that made out.dirs.
    static QString directoryName(const QString &parent, const QPair<qint64, QString> &folder, const ExpectedTree &out);

private:
    QList<QVariantList> rows(const QString &sql, int columns) const;
    // Child folders (id, stored name) in name order, as the view of this kind of database shows them.
    QList<QPair<qint64, QString>> children(qint64 parent) const;
    // rec_id, File_Name, File_Description, bytes, FileActualDate, File_DateUploaded.
    QList<QVariantList> documents(qint64 folder) const;
    bool holdsArchived(qint64 folder) const;

    QString m_name;
    bool m_archive;
    bool m_ok = false;
};

// Every directory and file below dir, "/"-separated and relative.
void listTree(const QString &dir, QSet<QString> *dirs, QStringList *files);

// Compares the tree below dest with the expectation (QtTest failures; check
// QTest::currentTestFailed() after it). runStart bounds the time of undated files. lastWritten,
// when given, holds each path's content right after its last write (by the observer).
void compareWithRepository(const QString &dest, const ExpectedTree &expected, const QDateTime &runStart,
                           const QHash<QString, QByteArray> *lastWritten = nullptr);
