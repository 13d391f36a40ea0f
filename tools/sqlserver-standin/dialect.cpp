#include "dialect.h"

#include "repository/tsqllexer.h"

namespace standin {

namespace {

using repo::tsql::Kind;
using repo::tsql::Token;

bool isWordToken(const Token &t, const char *word)
{
    return t.kind == Kind::Word && t.text.compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
}

Refusal near(const QString &text)
{
    return {102, QStringLiteral("Incorrect syntax near '%1'.").arg(text)};
}

Refusal nearKeyword(const QString &keyword)
{
    return {156, QStringLiteral("Incorrect syntax near the keyword '%1'.").arg(keyword)};
}

} // namespace

Refusal sqliteOnlySyntax(const QString &sql)
{
    QList<Token> tokens;
    for (const Token &t : repo::tsql::tokenize(sql))
        if (t.kind != Kind::Space)
            tokens << t;
    for (qsizetype i = 0; i < tokens.size(); ++i) {
        const Token &t = tokens.at(i);
        const Token *next = i + 1 < tokens.size() ? &tokens.at(i + 1) : nullptr;
        const Token *previous = i > 0 ? &tokens.at(i - 1) : nullptr;
        if (t.kind == Kind::Other && next && next->kind == Kind::Other
            && ((t.text == u"|" && next->text == u"|") || (t.text == u"=" && next->text == u"=")))
            return near(t.text);
        if (isWordToken(t, "limit") || (isWordToken(t, "nulls") && next
                                        && (isWordToken(*next, "first") || isWordToken(*next, "last"))))
            return near(t.text);
        if (isWordToken(t, "if") && next && isWordToken(*next, "not") && previous
            && (isWordToken(*previous, "table") || isWordToken(*previous, "index") || isWordToken(*previous, "view")))
            return nearKeyword(t.text.toUpper());
        if (isWordToken(t, "or") && previous && (isWordToken(*previous, "insert") || isWordToken(*previous, "replace")))
            return nearKeyword(t.text.toUpper());
    }
    return {};
}

} // namespace standin
