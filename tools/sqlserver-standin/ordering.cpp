#include "ordering.h"

#include <QRandomGenerator>
#include <QRegularExpression>

#include <algorithm>

namespace standin {

namespace {

// The text with every string literal emptied and every bracketed name unbracketed, so commas,
// parentheses and keywords are found only where they are syntax.
QString withoutLiterals(const QString &sql)
{
    QString out;
    out.reserve(sql.size());
    QChar quote;
    for (const QChar c : sql) {
        if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
            continue;
        }
        if (c == u'\'') {
            quote = c;
            out += QStringLiteral("''");
        } else if (c == u'[' || c == u']') {
            continue;
        } else {
            out += c;
        }
    }
    return out;
}

// The items of a list split at commas outside parentheses; "" when the list closes a parenthesis
// it did not open (the ORDER BY of a subquery).
QStringList topLevelItems(const QString &list, bool *inner)
{
    QStringList items;
    int depth = 0;
    QString item;
    for (const QChar c : list) {
        depth += c == u'(' ? 1 : (c == u')' ? -1 : 0);
        if (depth < 0) {
            *inner = true;
            return {};
        }
        if (c == u',' && depth == 0) {
            items << item.trimmed();
            item.clear();
        } else {
            item += c;
        }
    }
    items << item.trimmed();
    return items;
}

int columnOf(const QString &item, const QStringList &columnNames)
{
    static const QRegularExpression direction(QStringLiteral(R"(\s+(ASC|DESC)$)"), QRegularExpression::CaseInsensitiveOption);
    QString key = item;
    key.remove(direction);
    bool number = false;
    const int position = key.toInt(&number);
    if (number)
        return position >= 1 && position <= columnNames.size() ? position - 1 : -1;
    const QString bare = key.mid(key.lastIndexOf(u'.') + 1).trimmed();
    for (int c = 0; c < columnNames.size(); ++c) {
        const QString name = columnNames.at(c);
        if (name.compare(key, Qt::CaseInsensitive) == 0
            || name.mid(name.lastIndexOf(u'.') + 1).compare(bare, Qt::CaseInsensitive) == 0)
            return c;
    }
    return -1;
}

// Values that tie under the server's case-insensitive collation.
QString tieKey(const QVariant &v)
{
    return v.isNull() ? QString() : QStringLiteral("v") + v.toString().toCaseFolded();
}

} // namespace

bool orderKeys(const QString &sql, const QStringList &columnNames, QList<int> &keys)
{
    keys.clear();
    static const QRegularExpression orderBy(QStringLiteral(R"(\border\s+by\b)"), QRegularExpression::CaseInsensitiveOption);
    const QString text = withoutLiterals(sql);
    qsizetype at = -1;
    for (auto it = orderBy.globalMatch(text); it.hasNext();)
        at = it.next().capturedEnd();
    if (at < 0)
        return false;
    bool inner = false;
    const QStringList items = topLevelItems(text.mid(at), &inner);
    if (inner)
        return false;
    for (const QString &item : items) {
        const int c = columnOf(item, columnNames);
        if (c < 0) {
            keys.clear();
            return true;
        }
        keys << c;
    }
    return true;
}

void shuffleTies(const QString &sql, const QStringList &columnNames, QList<QVariantList> &rows, quint32 seed)
{
    QList<int> keys;
    const bool ordered = orderKeys(sql, columnNames, keys);
    if (ordered && keys.isEmpty())
        return;
    QRandomGenerator random(seed ^ quint32(qHash(sql.simplified(), 0)));
    const auto rowKey = [&](const QVariantList &row) {
        QStringList parts;
        for (int k : std::as_const(keys))
            parts << tieKey(row.value(k));
        return parts;
    };
    for (qsizetype first = 0; first < rows.size();) {
        qsizetype end = first + 1;
        const QStringList key = rowKey(rows.at(first));
        while (end < rows.size() && rowKey(rows.at(end)) == key)
            ++end;
        std::shuffle(rows.begin() + first, rows.begin() + end, random);
        first = end;
    }
}

} // namespace standin
