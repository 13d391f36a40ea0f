#include "repository/connectionstring.h"

#include "errors/hunterr.h"
#include "names/filenames.h"

using names::trimBlanks;

namespace {

const QString kModule = QStringLiteral("FrmSendtofolder.");

QString connectionText(const QString &user, const QString &catalogueClause, const QString &server,
                       const QString &password)
{
    return QStringLiteral("Provider=SQLOLEDB.1;Persist Security Info=true") + QStringLiteral(";User ID=") + user
        + catalogueClause + QStringLiteral(";Data Source=") + server + QStringLiteral(";Password=") + password;
}

} // namespace

namespace repo {

ConnectionString ConnectionString::parse(const QString &text)
{
    ConnectionString cs;
    const qsizetype n = text.size();
    qsizetype i = 0;
    while (i < n) {
        const qsizetype eq = text.indexOf(u'=', i);
        const qsizetype semi = text.indexOf(u';', i);
        if (eq < 0)
            break;
        if (semi >= 0 && semi < eq) { // a fragment without "=": nothing to take from it
            i = semi + 1;
            continue;
        }
        const QString key = text.mid(i, eq - i).simplified().toLower();
        i = eq + 1;
        while (i < n && text.at(i) == u' ')
            ++i;

        QString value;
        bool quoted = false;
        if (i < n && (text.at(i) == u'"' || text.at(i) == u'\'')) {
            // A quoted value may hold ";"; a doubled quote stands for itself.
            const QChar q = text.at(i);
            QString inner;
            qsizetype j = i + 1;
            bool closed = false;
            while (j < n) {
                if (text.at(j) == q) {
                    if (j + 1 < n && text.at(j + 1) == q) {
                        inner += q;
                        j += 2;
                        continue;
                    }
                    closed = true;
                    ++j;
                    break;
                }
                inner += text.at(j++);
            }
            qsizetype k = j;
            while (k < n && text.at(k) == u' ')
                ++k;
            if (closed && (k >= n || text.at(k) == u';')) {
                value = inner;
                quoted = true;
                i = k + 1;
            }
        }
        if (!quoted) {
            const qsizetype end = text.indexOf(u';', i);
            value = text.mid(i, (end < 0 ? n : end) - i).trimmed();
            i = end < 0 ? n : end + 1;
        }

        if (key == u"data source" || key == u"server" || key == u"address" || key == u"addr"
            || key == u"network address")
            cs.dataSource = value;
        else if (key == u"initial catalog" || key == u"database")
            cs.initialCatalog = value;
        else if (key == u"user id" || key == u"uid" || key == u"user")
            cs.userId = value;
        else if (key == u"password" || key == u"pwd")
            cs.password = value;
        else if (key == u"provider")
            cs.provider = value;
    }
    return cs;
}

} // namespace repo

QString correctQuotes(const QString &strInput)
{
    return HuntERR::inner(kModule + QStringLiteral("correctQuotes(strInput)"), [&] {
        QString s = strInput;
        s.replace(u'\'', QStringLiteral("''"));
        return trimBlanks(s);
    });
}

QString masterConnectionString(const QString &user, const QString &server, const QString &password)
{
    return connectionText(correctQuotes(user), QStringLiteral(";Initial Catalog = zar_Master"), correctQuotes(server),
                          correctQuotes(password));
}

QString serverMasterConnectionString(const QString &user, const QString &server, const QString &password)
{
    return connectionText(correctQuotes(user), QStringLiteral(";Initial Catalog = MASTER"), correctQuotes(server),
                          correctQuotes(password));
}

// The catalogue goes in as given: the tree building passes either the quote-corrected list text or
// the paired live name as read from the catalogue.
QString databaseConnectionString(const QString &user, const QString &catalogue, const QString &server,
                                 const QString &password)
{
    return connectionText(correctQuotes(user), QStringLiteral(";Initial Catalog=") + catalogue, correctQuotes(server),
                          correctQuotes(password));
}
