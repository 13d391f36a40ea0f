#pragma once
// What the procedures read from and write to the main window. The window implements it with its
// controls; the command line with its arguments and a progress line. The core never sees a widget.

#include "tree/treesession.h"

#include <QString>
#include <QStringList>

namespace session {

// The whole window as the sign-in sees it: what the tree and the export read and write, and the
// database list with its type label.
class FormPort : public tree::WindowPort {
public:
    // The database list (cboDBName) and the type label.
    virtual void clearDatabases() = 0;
    virtual void addDatabase(const QString &name) = 0;
    virtual int databaseCount() const = 0;
    // Choose entry 0; the window's list then raises its click, which shows the type.
    virtual void selectFirstDatabase() = 0;
    // Type caption; colour 0 black (live), 255 red (archive), -1 leaves it as it was.
    virtual void setDbType(const QString &caption, int colour) = 0;
};

// A port that reads fixed texts and ignores the rest; the base of the command line's port and of tests.
class PlainFormPort : public FormPort {
public:
    QString server, user, password, database, dbType;
    QStringList databases;
    int dbTypeColour = 0;
    QString status;
    QStringList messages;
    int signInScreenShown = 0;
    QString openedLog;

    QString serverText() const override { return server; }
    QString userText() const override { return user; }
    QString passwordText() const override { return password; }
    QString databaseText() const override { return database; }
    QString dbTypeCaption() const override { return dbType; }
    void clearDatabases() override { databases.clear(); }
    void addDatabase(const QString &name) override { databases << name; }
    int databaseCount() const override { return int(databases.size()); }
    void selectFirstDatabase() override { database = databases.value(0); }
    void setDbType(const QString &caption, int colour) override
    {
        dbType = caption;
        if (colour >= 0)
            dbTypeColour = colour;
    }
    void setStatus(const QString &text) override { status = text; }
    void repaint() override {}
    void setBusy(bool) override {}
    void message(const QString &text) override { messages << text; }
    void showSignInScreen() override { ++signInScreenShown; }
    void openLog(const QString &folder, const QString &fileName) override { openedLog = folder + "/" + fileName; }
};

} // namespace session
