#pragma once
// What the folder tree's procedures and the export need of the signed-in session: the company
// connection, which database was chosen and how, the destination, and the window's boxes, status
// line and messages. The session (its sign-in and the window's port) provides it; the tree and
// the export never see the sign-in itself, so the session can drive them from above.

#include "repository/connection.h"

#include <QString>

namespace tree {

class WindowPort {
public:
    virtual ~WindowPort() = default;

    // The sign-in boxes, exactly as typed.
    virtual QString serverText() const = 0;    // txServerName
    virtual QString userText() const = 0;      // txtUserName
    virtual QString passwordText() const = 0;  // txtPassword
    virtual QString databaseText() const = 0;  // cboDBName
    virtual QString dbTypeCaption() const = 0; // lblDbTypeValue

    virtual void setStatus(const QString &text) = 0; // txtProg
    virtual void repaint() = 0;                      // let the status text be seen during long work
    virtual void setBusy(bool busy) = 0;             // hourglass pointer
    // A validation message: exclamation icon, OK, title "zarnivo - Parcelwise".
    virtual void message(const QString &text) = 0;
    // Tree building refused the database: back to the database choice.
    virtual void showSignInScreen() = 0;
    // Show the export log with the platform's default application for text files.
    virtual void openLog(const QString &folder, const QString &fileName) = 0;
};

class SessionState {
public:
    virtual ~SessionState() = default;

    // Created closed on first use after start or after release, so whether it is open can be asked.
    virtual repo::Connection &cnDb() = 0;
    virtual WindowPort &form() = 0;

    bool blnArchive = false;
    QString strSelectedDb;
    QString strLiveDb;
    bool blnInvalidDb = false;
    QString DestinationPath;
};

} // namespace tree
