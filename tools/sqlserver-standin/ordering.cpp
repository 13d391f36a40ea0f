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

// A text as Latin1_General's Unicode rules weigh it: first the letters, accents and case set
// aside, "ß" as "ss", hyphens and apostrophes not counted; then the accents; then the hyphens.
// Case never counts (CI) and trailing blanks neither.
struct TextWeight {
    QString letters, accents, marks;
};

TextWeight textWeight(const QString &text)
{
    QString s = text;
    while (s.endsWith(u' '))
        s.chop(1);
    s = s.toCaseFolded().replace(QChar(0xDF), QStringLiteral("ss")).normalized(QString::NormalizationForm_D);
    TextWeight w;
    w.marks = s;
    for (const QChar c : std::as_const(s)) {
        if (c == u'-' || c == u'\'')
            continue;
        w.accents += c;
        if (c.category() != QChar::Mark_NonSpacing)
            w.letters += c;
    }
    return w;
}

// SQL Server's comparison of two values of one column: NULL lowest, numbers by value, texts by
// their weights.
int compareValues(const QVariant &a, const QVariant &b)
{
    if (a.isNull() || b.isNull())
        return int(b.isNull()) - int(a.isNull());
    const int type = a.typeId();
    if (type == QMetaType::Int || type == QMetaType::LongLong || type == QMetaType::Double) {
        const double x = a.toDouble(), y = b.toDouble();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    const TextWeight x = textWeight(a.toString()), y = textWeight(b.toString());
    for (const auto part : {&TextWeight::letters, &TextWeight::accents, &TextWeight::marks}) {
        const int c = QString::compare(x.*part, y.*part);
        if (c != 0)
            return c < 0 ? -1 : 1;
    }
    return 0;
}

} // namespace

QStringList sourceColumns(const QString &sql, const QStringList &columnNames)
{
    static const QRegularExpression head(QStringLiteral(R"(^\s*select\s+(?:distinct\s+)?(?:top\s*\(?\s*\d+\s*\)?\s+)?)"),
                                         QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression from(QStringLiteral(R"(\bfrom\b)"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression plain(QStringLiteral(R"(^(?:\w+\.)*(\w+|\*)(?:\s+(?:as\s+)?\w+)?$)"),
                                          QRegularExpression::CaseInsensitiveOption);
    const QStringList none(columnNames.size(), QString());
    const QString text = withoutLiterals(sql);
    const QRegularExpressionMatch select = head.match(text);
    if (!select.hasMatch())
        return none;
    // The list ends at the first FROM outside parentheses.
    qsizetype end = text.size();
    for (auto it = from.globalMatch(text, select.capturedEnd()); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        const QString before = text.mid(select.capturedEnd(), m.capturedStart() - select.capturedEnd());
        if (before.count(u'(') == before.count(u')')) {
            end = m.capturedStart();
            break;
        }
    }
    bool inner = false;
    const QStringList items = topLevelItems(text.mid(select.capturedEnd(), end - select.capturedEnd()), &inner);
    QStringList sources;
    for (const QString &item : items) {
        const QRegularExpressionMatch m = plain.match(item);
        if (m.hasMatch() && m.captured(1) == u"*")
            return columnNames; // every column of a table, by its own name
        sources << (m.hasMatch() ? m.captured(1) : QString());
    }
    return inner || sources.size() != columnNames.size() ? none : sources;
}

bool orderKeys(const QString &sql, const QStringList &columnNames, QList<OrderKey> &keys)
{
    keys.clear();
    static const QRegularExpression orderBy(QStringLiteral(R"(\border\s+by\b)"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression descending(QStringLiteral(R"(\sDESC$)"), QRegularExpression::CaseInsensitiveOption);
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
        keys << OrderKey{c, descending.match(item).hasMatch()};
    }
    return true;
}

void orderAsServer(const QString &sql, const QStringList &columnNames, QList<QVariantList> &rows,
                   std::optional<quint32> seed)
{
    QList<OrderKey> keys;
    const bool ordered = orderKeys(sql, columnNames, keys);
    if (ordered && keys.isEmpty())
        return; // a key that is not a column: the order is the embedded server's
    const auto compareRows = [&](const QVariantList &a, const QVariantList &b) {
        for (const OrderKey &k : std::as_const(keys)) {
            const int c = compareValues(a.value(k.column), b.value(k.column));
            if (c != 0)
                return k.descending ? -c : c;
        }
        return 0;
    };
    std::stable_sort(rows.begin(), rows.end(),
                     [&](const QVariantList &a, const QVariantList &b) { return compareRows(a, b) < 0; });
    if (!seed)
        return;
    QRandomGenerator random(*seed ^ quint32(qHash(sql.simplified(), 0)));
    for (qsizetype first = 0; first < rows.size();) {
        qsizetype end = first + 1;
        while (end < rows.size() && compareRows(rows.at(first), rows.at(end)) == 0)
            ++end;
        std::shuffle(rows.begin() + first, rows.begin() + end, random);
        first = end;
    }
}

} // namespace standin
