#pragma once
// T-SQL as the embedded server reads it before adapting it: tokens, and tokens grouped by
// parentheses. One quoting rule serves every quoted run ('text', [name], "name"): the closing
// character doubled stands for itself.

#include <QList>
#include <QString>

namespace repo::tsql {

enum class Kind {
    Space,  // blanks, line breaks and comments
    Word,   // identifier or keyword
    Quoted, // [name] or "name", already in SQLite's double-quoted form
    String, // 'text' with '' inside
    Number,
    Dots,   // ".." of a three-part name
    Dot,
    Comma,
    Open,
    Close,
    Plus,
    Other, // every other operator or character
};

struct Token {
    Kind kind;
    QString text;
};

// A token, or a parenthesised group of nodes.
struct Node {
    Token tok;
    bool group = false;
    bool closed = false; // the group found its ")"
    QList<Node> children;
};

bool isWordStart(QChar c);
bool isWordPart(QChar c);
// s[i] opens a quoted run that ends at `close`; returns the index just past it (n when unclosed).
qsizetype quotedEnd(const QChar *s, qsizetype n, qsizetype i, QChar close);
// s[i..] opens a comment ("--" or "/*"); returns the index just past it, or i when it does not.
qsizetype commentEnd(const QChar *s, qsizetype n, qsizetype i);

QList<Token> tokenize(const QString &s);
QList<Node> parseNodes(const QList<Token> &tokens);

QString unquote(const Token &t);
bool isWord(const Node &n, const char *word);
bool isSpace(const Node &n);
bool isName(const Node &n);
bool isKind(const Node &n, Kind kind);

} // namespace repo::tsql
