#pragma once
// Helpers shared by the test programs.

#include "session/headlesssession.h"

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

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

// SHA-256 over every regular file below dir, in sorted order of relative path ("/" separated):
// each file contributes its relative path, a zero byte, its size and its bytes. Two trees with
// the same hash hold the same files with the same contents.
QByteArray sha256OfTree(const QString &dir);

// Small file chores: the whole file ("" when unreadable), a file written with its folders made,
// the files (not subfolders) of one folder copied into another, made when missing.
QByteArray fileBytes(const QString &path);
bool writeFile(const QString &path, const QByteArray &bytes);
bool copyFolder(const QString &from, const QString &to);

// Whether the ODBC driver manager knows a driver of this name (and Qt has its ODBC driver).
bool odbcDriverRegistered(const QString &name);

// Starts the SQL Server stand-in (PARCELWISE_STANDIN, else the one beside the test) serving folder
// on a free port of 127.0.0.1, with extra arguments after the usual ones. Returns the port, 0 when
// it did not come up. It stops by itself when the test ends (its standard input closes).
int startStandin(QProcess &process, const QString &folder, const QStringList &extra = {});

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
