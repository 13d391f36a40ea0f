#include "session/signin.h"

#include "errors/hunterr.h"
#include "repository/statements.h"

namespace session {

using names::trimBlanks;

namespace {

const QString kModule = QStringLiteral("FrmSendtofolder.");
constexpr qint32 vbErrOverflow = 6;

} // namespace

SignIn::SignIn(FormPort &form) : m_form(form) {}

SignIn::~SignIn() = default;

repo::Connection &SignIn::cnMaster()
{
    if (!m_master)
        m_master = std::make_unique<repo::Connection>();
    return *m_master;
}

repo::Connection &SignIn::cnDb()
{
    if (!m_db)
        m_db = std::make_unique<repo::Connection>();
    return *m_db;
}

void SignIn::releaseMaster()
{
    m_master.reset();
}

void SignIn::releaseDb()
{
    m_db.reset();
}

void SignIn::refreshDatabaseList()
{
    if (trimBlanks(m_form.serverText()).isEmpty()) {
        m_form.message(QStringLiteral("Please enter server name"));
        return;
    }
    if (trimBlanks(m_form.userText()).isEmpty()) {
        m_form.message(QStringLiteral("Please enter user name"));
        return;
    }
    FillDataBasename();
}

void SignIn::FillDataBasename()
{
    HuntERR::inner(kModule + QStringLiteral("FillDataBasename"), [&] {
        try {
            strUserName = m_form.userText();
            strPassword = m_form.passwordText();
            if (correctQuotes(m_form.serverText()).isEmpty())
                return;

            const QString text = masterConnectionString(m_form.userText(), m_form.serverText(), m_form.passwordText());
            repo::Connection &cn = cnMaster();
            if (cn.state() == repo::adStateOpen)
                cn.close();
            cn.cursorLocation = repo::adUseClient;
            cn.open(text);

            m_form.clearDatabases();
            rsDbList = cn.execute(repo::statements::companyDatabases());
            while (!rsDbList.eof()) {
                m_form.addDatabase(rsDbList.text(QStringLiteral("Com_db")));
                rsDbList.moveNext();
            }
            if (m_form.databaseCount() > 0)
                m_form.selectFirstDatabase();
        } catch (const HuntERR::Error &e) {
            // The two failures a person can put right at the sign-in boxes are told, not reported.
            if (e.number() == repo::ERR_UNREACHABLE) {
                HuntERR::clearCurrent();
                HuntERR::clearPreserved();
                // The words the person has always read, then why, when the driver knows.
                const QString unreachable = QStringLiteral("SQL Server does not exist or access denied");
                QString reason = e.description().trimmed();
                if (reason.endsWith(u'.'))
                    reason.chop(1);
                m_form.message(reason.isEmpty() || reason.startsWith(unreachable)
                                   ? unreachable
                                   : QStringLiteral("%1 (%2)").arg(unreachable, reason));
                return;
            }
            if (e.number() == repo::ERR_LOGIN_REJECTED) {
                m_form.message(e.description());
                HuntERR::clearCurrent();
                HuntERR::clearPreserved();
                return;
            }
            throw;
        }
    });
}

void SignIn::cboDBName_Click()
{
    const QString caption = fxnGetDBType(m_form.databaseText());
    blnArchive = false;
    int colour = -1;
    const QString type = caption.toUpper();
    if (type == u"LIVE") {
        blnArchive = false;
        colour = 0;
    } else if (type == u"ARCHIVE") {
        blnArchive = true;
        colour = 255;
    }
    m_form.setDbType(caption, colour);
}

QString SignIn::fxnGetDBType(const QString &paramDBName)
{
    return HuntERR::inner(kModule + QStringLiteral("fxnGetDBType(paramDBName)"), [&] {
        QString type;
        if (rsDbList.recordCount() > 0)
            rsDbList.moveFirst();
        // The loop counter is a 16-bit integer: a longer list overflows before the first row.
        const int count = rsDbList.recordCount();
        if (count > 32767)
            HuntERR::raise(vbErrOverflow, QStringLiteral("Overflow"));
        const QString wanted = paramDBName.toUpper();
        for (int i = 1; i <= count; ++i) {
            if (rsDbList.text(QStringLiteral("Com_db")).toUpper() == wanted) {
                type = rsDbList.text(QStringLiteral("Com_Type"));
                break;
            }
            rsDbList.moveNext();
        }
        const QString code = type.toUpper();
        if (code == u"L")
            return QStringLiteral("Live");
        if (code == u"A")
            return QStringLiteral("Archive");
        return QString();
    });
}

bool SignIn::fxnIsDBExists(const QString &paramDbName)
{
    return HuntERR::inner(kModule + QStringLiteral("fxnIsDBExists(paramDbName)"), [&] {
        // Dropped, not closed: a connection left open by the last tree is simply let go.
        releaseDb();
        bool result = false;
        if (correctQuotes(m_form.serverText()).isEmpty())
            return result;
        const QString text =
            serverMasterConnectionString(m_form.userText(), m_form.serverText(), m_form.passwordText());
        repo::Connection &cn = cnDb();
        if (cn.state() == repo::adStateOpen)
            cn.close();
        cn.cursorLocation = repo::adUseClient;
        cn.open(text);
        const repo::RecordSet rs =
            cn.execute(repo::statements::databaseExists(paramDbName));
        result = rs.recordCount() >= 1;
        return result;
    });
}

QString SignIn::fxnGetLiveDb(const QString &paramArchiveDbNm)
{
    return HuntERR::inner(kModule + QStringLiteral("fxnGetLiveDb(paramArchiveDbNm)"), [&] {
        QString result;
        repo::RecordSet rs = cnDb().execute(repo::statements::liveDatabaseOf(paramArchiveDbNm));
        if (rs.recordCount() >= 1)
            result = rs.text(QStringLiteral("com_db"));
        if (rs.isOpen())
            rs.close();
        return result;
    });
}

bool SignIn::validateAndPrepare(QString *focusTo)
{
    auto focus = [&](const char *control) {
        if (focusTo)
            *focusTo = QString::fromLatin1(control);
    };
    if (focusTo)
        focusTo->clear();
    if (trimBlanks(m_form.serverText()).isEmpty()) {
        m_form.message(QStringLiteral("Please enter server name"));
        focus("txServerName");
        return false;
    }
    if (trimBlanks(m_form.userText()).isEmpty()) {
        m_form.message(QStringLiteral("Please enter user name"));
        focus("txtUserName");
        return false;
    }
    if (m_form.databaseText() == QString()) {
        m_form.message(QStringLiteral("Please select database name"));
        return false;
    }
    if (!fxnIsDBExists(trimBlanks(m_form.databaseText()))) {
        m_form.message(QStringLiteral("Selected database does not exists"));
        return false;
    }
    strSelectedDb = correctQuotes(trimBlanks(m_form.databaseText()));
    strLiveDb.clear();
    if (blnArchive)
        strLiveDb = fxnGetLiveDb(strSelectedDb);
    return true;
}

} // namespace session
