#include "batch.h"

#include "repository/tsqllexer.h"

namespace standin {

namespace {

bool oneOf(const QString &word, std::initializer_list<const char *> words)
{
    for (const char *w : words)
        if (word.compare(QLatin1String(w), Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

} // namespace

QStringList splitBatch(const QString &text)
{
    using namespace repo::tsql;
    QStringList statements;
    const QChar *s = text.constData();
    const qsizetype n = text.size();
    qsizetype start = 0;
    int depth = 0;
    QString previous; // the last word outside parentheses
    const auto cut = [&](qsizetype at, qsizetype next) {
        const QString statement = text.mid(start, at - start).trimmed();
        if (!statement.isEmpty())
            statements << statement;
        start = next;
        previous.clear();
    };
    for (qsizetype i = 0; i < n;) {
        const QChar c = s[i];
        const qsizetype comment = commentEnd(s, n, i);
        if (comment > i) {
            i = comment;
        } else if (c == u'\'' || c == u'"' || c == u'[') {
            i = quotedEnd(s, n, i, c == u'[' ? QChar(u']') : c);
        } else if (isWordStart(c)) {
            qsizetype end = i + 1;
            while (end < n && isWordPart(s[end]))
                ++end;
            const QString word = text.mid(i, end - i);
            if (depth == 0) {
                const bool begins = oneOf(word, {"select", "set", "use", "declare", "exec", "execute", "if", "print"})
                                    && !oneOf(previous, {"union", "all", "except", "intersect", "insert", "into", "table",
                                                        "index", "view"});
                if (begins && !text.mid(start, i - start).trimmed().isEmpty())
                    cut(i, i);
                previous = word;
            }
            i = end;
        } else {
            depth += c == u'(' ? 1 : (c == u')' && depth > 0 ? -1 : 0);
            if (c == u';' && depth == 0)
                cut(i, i + 1);
            ++i;
        }
    }
    cut(n, n);
    return statements;
}

} // namespace standin
