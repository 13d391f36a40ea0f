#include "repository/statementshapes.h"

#include "repository/tsqllexer.h"

namespace repo {
namespace {

// Runs once for every statement sent, the long date statement included, so it scans without
// building anything and copies only around the numbers it takes out.
bool asciiWordPart(QChar c)
{
    const char16_t u = c.unicode();
    if (u < 128)
        return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'_'
            || u == u'@' || u == u'#' || u == u'$';
    return tsql::isWordPart(c);
}

bool asciiWordStart(QChar c)
{
    const char16_t u = c.unicode();
    if (u < 128)
        return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || u == u'_' || u == u'@' || u == u'#';
    return tsql::isWordStart(c);
}

bool isBlank(QChar c)
{
    return c == u' ' || (c.unicode() < 128 ? (c >= u'\t' && c <= u'\r') : c.isSpace());
}

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

class Shaper {
public:
    explicit Shaper(const QString &tsql)
        : m_tsql(tsql)
        , s(tsql.constData())
        , n(tsql.size())
    {
    }

    ParameterizedStatement run();

private:
    qsizetype number(qsizetype i);

    const QString &m_tsql;
    const QChar *s;
    const qsizetype n;
    ParameterizedStatement m_result;
    qsizetype m_copied = 0; // m_tsql[0, m_copied) is in the result's text already
};

// The digits at s[i] follow "=": a plain whole number that ends the operand is taken out; "5.0",
// "5e3", "0x1F" or "5 + x" stay as written, so the adapter sees them exactly as before.
qsizetype Shaper::number(qsizetype i)
{
    qsizetype j = i;
    while (j < n && isDigit(s[j]))
        ++j;
    qsizetype k = j;
    while (k < n && isBlank(s[k]))
        ++k;
    const bool joined = j < n && (asciiWordPart(s[j]) || s[j] == u'.');
    const bool ends = k == n || s[k] == u')' || s[k] == u';' || (k > j && asciiWordStart(s[k]));
    bool ok = false;
    const qint64 value = j - i <= 18 ? QStringView(s + i, j - i).toLongLong(&ok) : 0;
    if (!joined && ends && ok) {
        if (m_result.text.isEmpty())
            m_result.text.reserve(n + 8);
        m_result.text.append(s + m_copied, i - m_copied);
        m_result.values.append(value);
        m_result.text += u'?' + QString::number(m_result.values.size());
        m_copied = j;
    }
    return j;
}

ParameterizedStatement Shaper::run()
{
    bool afterEquals = false; // "=" seen, then only blanks and "("
    qsizetype i = 0;
    while (i < n) {
        const QChar c = s[i];
        if (c == u'?')
            return {m_tsql, {}}; // placeholders of its own: leave the statement alone
        const qsizetype comment = tsql::commentEnd(s, n, i);
        if (comment > i) {
            i = comment;
        } else if (c == u'\'' || c == u'"' || c == u'[') {
            i = tsql::quotedEnd(s, n, i, c == u'[' ? QChar(u']') : c);
            afterEquals = false;
        } else if (isDigit(c) && afterEquals) {
            i = number(i);
            afterEquals = false;
        } else if (asciiWordPart(c)) {
            while (i < n && asciiWordPart(s[i]))
                ++i;
            afterEquals = false;
        } else {
            ++i;
            if (c == u'=')
                afterEquals = true;
            else if (!isBlank(c) && c != u'(')
                afterEquals = false;
        }
    }
    if (m_result.values.isEmpty())
        m_result.text = m_tsql;
    else
        m_result.text.append(s + m_copied, n - m_copied);
    return m_result;
}

} // namespace

ParameterizedStatement parameterizeTSql(const QString &tsql)
{
    return Shaper(tsql).run();
}

} // namespace repo
