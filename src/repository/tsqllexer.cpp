#include "repository/tsqllexer.h"

namespace repo::tsql {

bool isWordStart(QChar c)
{
    return c.isLetter() || c == u'_' || c == u'@' || c == u'#';
}

bool isWordPart(QChar c)
{
    return c.isLetterOrNumber() || c == u'_' || c == u'@' || c == u'#' || c == u'$';
}

qsizetype quotedEnd(const QChar *s, qsizetype n, qsizetype i, QChar close)
{
    for (++i; i < n; ++i) {
        if (s[i] != close)
            continue;
        if (i + 1 < n && s[i + 1] == close) {
            ++i;
            continue;
        }
        return i + 1;
    }
    return n;
}

qsizetype commentEnd(const QChar *s, qsizetype n, qsizetype i)
{
    if (i + 1 >= n)
        return i;
    if (s[i] == u'-' && s[i + 1] == u'-') {
        while (i < n && s[i] != u'\n')
            ++i;
        return i;
    }
    if (s[i] == u'/' && s[i + 1] == u'*') {
        for (i += 2; i + 1 < n; ++i) {
            if (s[i] == u'*' && s[i + 1] == u'/')
                return i + 2;
        }
        return n;
    }
    return i;
}

namespace {

Kind punctuation(QChar c)
{
    switch (c.unicode()) {
    case u',':
        return Kind::Comma;
    case u'(':
        return Kind::Open;
    case u')':
        return Kind::Close;
    case u'+':
        return Kind::Plus;
    default:
        return Kind::Other;
    }
}

// [name] becomes SQLite's "name", with "]]" read as "]" and a '"' inside doubled.
QString bracketedAsQuoted(const QChar *s, qsizetype from, qsizetype to)
{
    QString name = QString(s + from + 1, to - from - 1);
    if (name.endsWith(u']'))
        name.chop(1);
    name.replace(QStringLiteral("]]"), QStringLiteral("]"));
    name.replace(u'"', QStringLiteral("\"\""));
    return u'"' + name + u'"';
}

// The end of the token that starts at s[i], and its kind.
qsizetype tokenEnd(const QChar *s, qsizetype n, qsizetype i, Kind *kind)
{
    const QChar c = s[i];
    qsizetype j = commentEnd(s, n, i);
    if (j > i || c.isSpace()) {
        *kind = Kind::Space;
        while (j < n && s[j].isSpace())
            ++j;
        return j;
    }
    if (c == u'\'' || c == u'"' || c == u'[') {
        *kind = c == u'\'' ? Kind::String : Kind::Quoted;
        return quotedEnd(s, n, i, c == u'[' ? QChar(u']') : c);
    }
    if (c.isDigit() || (c == u'.' && i + 1 < n && s[i + 1].isDigit())) {
        *kind = Kind::Number;
        while (j < n && (s[j].isLetterOrNumber() || s[j] == u'.'))
            ++j;
        return j;
    }
    if (isWordStart(c)) {
        *kind = Kind::Word;
        while (j < n && isWordPart(s[j]))
            ++j;
        return j;
    }
    if (c == u'.') {
        const bool two = i + 1 < n && s[i + 1] == u'.';
        *kind = two ? Kind::Dots : Kind::Dot;
        return i + (two ? 2 : 1);
    }
    *kind = punctuation(c);
    return i + 1;
}

QList<Node> parseNodes(const QList<Token> &toks, qsizetype &pos, int depth, bool *closed)
{
    QList<Node> out;
    while (pos < toks.size()) {
        const Token &t = toks.at(pos++);
        if (t.kind == Kind::Open) {
            Node g;
            g.group = true;
            g.tok = t;
            g.children = parseNodes(toks, pos, depth + 1, &g.closed);
            out.append(std::move(g));
        } else if (t.kind == Kind::Close && depth > 0) {
            *closed = true;
            return out;
        } else {
            Node leaf;
            leaf.tok = t;
            if (t.kind == Kind::Close)
                leaf.tok.kind = Kind::Other; // a stray ")": SQLite reports it
            out.append(std::move(leaf));
        }
    }
    *closed = false;
    return out;
}

} // namespace

QList<Token> tokenize(const QString &text)
{
    QList<Token> out;
    const QChar *s = text.constData();
    const qsizetype n = text.size();
    qsizetype i = 0;
    while (i < n) {
        // N'...' is a Unicode literal in T-SQL; SQLite's literals are Unicode anyway.
        if ((s[i] == u'N' || s[i] == u'n') && i + 1 < n && s[i + 1] == u'\'')
            ++i;
        Kind kind = Kind::Other;
        const qsizetype end = tokenEnd(s, n, i, &kind);
        if (kind == Kind::Quoted && s[i] == u'[')
            out.append({kind, bracketedAsQuoted(s, i, end)});
        else
            out.append({kind, QString(s + i, end - i)});
        i = end;
    }
    return out;
}

QList<Node> parseNodes(const QList<Token> &tokens)
{
    qsizetype pos = 0;
    bool closed = false;
    return parseNodes(tokens, pos, 0, &closed);
}

QString unquote(const Token &t)
{
    if (t.kind != Kind::Quoted)
        return t.text;
    QString s = t.text.mid(1, t.text.size() - 2);
    s.replace(QStringLiteral("\"\""), QStringLiteral("\""));
    return s;
}

bool isKind(const Node &n, Kind kind)
{
    return !n.group && n.tok.kind == kind;
}

bool isWord(const Node &n, const char *word)
{
    return isKind(n, Kind::Word) && n.tok.text.compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
}

bool isSpace(const Node &n)
{
    return isKind(n, Kind::Space);
}

bool isName(const Node &n)
{
    return isKind(n, Kind::Word) || isKind(n, Kind::Quoted);
}

} // namespace repo::tsql
