#pragma once
// Helpers shared by the test programs, and the Qt headers nearly all of them use.

#include "demo/schema.h"
#include "session/headlesssession.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

// The names nearly every test program signs in and clicks with.
using session::HeadlessSession;
using session::PlainFormPort;
using tree::FolderTree;
using Opened = HeadlessSession::Opened;

// Writes the demo repository (src/demo/demorepository.h describes its contents) into
// parentDir/demo and returns that folder's path; an empty text when it could not be written
// (error, if given, says why).
QString writeDemo(const QString &parentDir, QString *error = nullptr);

// A test's own temporary folder with the demo repository written into it and the home folder
// (settings, the documents folder with the export logs) pointed inside it, so no run touches the
// real ones. In initTestCase: QVERIFY2(m_fx.setUp(), qPrintable(m_fx.error));
struct DemoFixture {
    QTemporaryDir tmp;
    QString demo;  // the demo repository's folder
    QString error; // why setUp() failed
    bool setUp();
    QString filePath(const QString &name) const { return tmp.filePath(name); }
};

// A tree as lines to compare: "rel/" per directory and "rel size sha256 date" per file, sorted,
// where date is the modification time in ms for a file older than writtenAfter and "undated" for
// one written later (it kept the moment of its writing).
QStringList treeSnapshot(const QString &dir, const QDateTime &writtenAfter);

// Bytes that never repeat along a document, the same for the same seed: a chunk read or written
// at the wrong offset shows in them.
QByteArray noise(qint64 size, quint32 seed);

// Small file chores: the whole file ("" when unreadable), a file written with its folders made,
// the files (not subfolders) of one folder copied into another, made when missing.
QByteArray fileBytes(const QString &path);
bool writeFile(const QString &path, const QByteArray &bytes);
bool copyFolder(const QString &from, const QString &to);

// Documents added to the company database of a writable server folder, an archived one's bytes
// to companyArchive; a document listed in noBytes is stored without any.
bool addDocuments(const QString &server, const QList<demo::Document> &docs, QString *error,
                  const QList<qint64> &noBytes = {}, const QString &company = QStringLiteral("Acme"));

// Whether the ODBC driver manager knows a driver of this name (and Qt has its ODBC driver).
bool odbcDriverRegistered(const QString &name);

// The SQL Server stand-in (PARCELWISE_STANDIN, else the one beside the test) serving a folder on a
// free port of 127.0.0.1, stopped when this ends (its standard input closes).
struct StandinProcess {
    QProcess process;
    int port = 0;
    QString server; // "127.0.0.1,PORT", the --server of a sign-in; empty until it is up
    QString logFile; // set before start: what it tells of each request (--log) goes there
    bool start(const QString &folder, const QStringList &extra = {});
    ~StandinProcess();
};

// Keeps every status text and hourglass change the procedures asked the window for.
struct RecordingPort : session::PlainFormPort {
    QStringList statusHistory;
    QList<bool> busyHistory;
    void setStatus(const QString &text) override
    {
        session::PlainFormPort::setStatus(text);
        statusHistory << text;
    }
    void setBusy(bool busy) override { busyHistory << busy; }
};

// A database of the demo server opened as a person opens it (user "demo", no password), with
// nodes addressed by folder id.
struct DemoSession {
    DemoSession(const QString &server, const QString &database);
    tree::FolderTree::Node *node(qint64 id) const;
    bool click(qint64 id);
    bool tick(qint64 id, bool on = true);
    // The root clicked and each of its children ticked.
    bool tickEverything();

    RecordingPort port;
    session::HeadlessSession s{port};
    session::HeadlessSession::Opened opened;
};
