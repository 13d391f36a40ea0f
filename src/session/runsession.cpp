#include "session/runsession.h"

namespace session {

RunSession::RunSession(tree::WindowPort &form) : m_form(form) {}

RunSession::~RunSession() = default;

void RunSession::take(tree::SessionState &from)
{
    blnArchive = from.blnArchive;
    strSelectedDb = from.strSelectedDb;
    strLiveDb = from.strLiveDb;
    blnInvalidDb = from.blnInvalidDb;
    DestinationPath = from.DestinationPath;
    m_connectionText = from.cnDb().connectionString;
}

void RunSession::open()
{
    close();
    m_cn = std::make_unique<repo::Connection>();
    m_cn->open(m_connectionText);
}

void RunSession::close()
{
    m_cn.reset();
}

repo::Connection &RunSession::cnDb()
{
    if (!m_cn)
        m_cn = std::make_unique<repo::Connection>(); // closed: a statement on it raises
    return *m_cn;
}

} // namespace session
