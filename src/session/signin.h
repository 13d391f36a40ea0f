#pragma once
// The sign-in: the catalogue of company databases, the live/archive type and pairing, and the
// sign-in state that the folder tree and the export read.

#include "names/filenames.h"
#include "repository/connection.h"
#include "session/formport.h"
#include "tree/treesession.h"

#include <memory>

namespace session {

class SignIn : public tree::SessionState {
public:
    explicit SignIn(FormPort &form);
    ~SignIn();

    // Created closed on first use after start or after release, so whether it is open can be asked.
    repo::Connection &cnMaster();
    repo::Connection &cnDb() override;
    void releaseMaster();
    void releaseDb();

    repo::RecordSet rsDbList;
    QString strUserName;
    QString strPassword;

    // cboDBName_GotFocus after its status text: validation, then the list refresh.
    void refreshDatabaseList();
    void FillDataBasename();
    void cboDBName_Click();
    QString fxnGetDBType(const QString &paramDBName);
    bool fxnIsDBExists(const QString &paramDbName);
    QString fxnGetLiveDb(const QString &paramArchiveDbNm);
    // cmdlogin_Click's validation and sign-in steps 1-6; true when the screen steps may go on.
    // focusTo receives "txServerName" or "txtUserName" when a message wants the focus there.
    bool validateAndPrepare(QString *focusTo);

    FormPort &form() override { return m_form; }

private:
    FormPort &m_form;
    std::unique_ptr<repo::Connection> m_master;
    std::unique_ptr<repo::Connection> m_db;
};

} // namespace session
