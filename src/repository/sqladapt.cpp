#include "repository/sqladapt.h"

#include "repository/tsqllexer.h"

#include <QRegularExpression>
#include <QStringList>

namespace repo {
namespace {

using namespace tsql;

bool isCharType(const QString &base)
{
    static const QStringList types = {QStringLiteral("varchar"), QStringLiteral("nvarchar"), QStringLiteral("char"),
                                      QStringLiteral("nchar"),   QStringLiteral("text"),     QStringLiteral("ntext"),
                                      QStringLiteral("sysname")};
    return types.contains(base);
}

QString sqliteType(const QString &base)
{
    static const QStringList ints = {QStringLiteral("int"),     QStringLiteral("integer"), QStringLiteral("bigint"),
                                     QStringLiteral("smallint"), QStringLiteral("tinyint"), QStringLiteral("bit")};
    static const QStringList reals = {QStringLiteral("float"), QStringLiteral("real")};
    static const QStringList numerics = {QStringLiteral("decimal"), QStringLiteral("numeric"), QStringLiteral("money"),
                                         QStringLiteral("smallmoney")};
    static const QStringList dates = {QStringLiteral("datetime"), QStringLiteral("datetime2"), QStringLiteral("date"),
                                      QStringLiteral("smalldatetime"), QStringLiteral("time")};
    static const QStringList blobs = {QStringLiteral("varbinary"), QStringLiteral("binary"), QStringLiteral("image")};
    if (isCharType(base) || dates.contains(base))
        return QStringLiteral("TEXT");
    if (ints.contains(base))
        return QStringLiteral("INTEGER");
    if (reals.contains(base))
        return QStringLiteral("REAL");
    if (numerics.contains(base))
        return QStringLiteral("NUMERIC");
    if (blobs.contains(base))
        return QStringLiteral("BLOB");
    return {};
}

// "varchar(8)" -> base "varchar", length 8 (-1 when none or max).
struct TypeName {
    QString base;
    int length = -1;
    bool valid = false;
};

TypeName parseType(const QString &text)
{
    static const QRegularExpression re(
        QStringLiteral(R"(^\s*([A-Za-z_][A-Za-z0-9_]*)\s*(?:\(\s*(\d+|max)\s*(?:,\s*\d+\s*)?\))?\s*$)"),
        QRegularExpression::CaseInsensitiveOption);
    TypeName t;
    const auto m = re.match(text);
    if (!m.hasMatch())
        return t;
    t.valid = true;
    t.base = m.captured(1).toLower();
    bool ok = false;
    const int len = m.captured(2).toInt(&ok);
    if (ok)
        t.length = len;
    return t;
}

// A datetime as SQL Server keeps it: in three-hundredths of a second (.000, .003, .007), the
// day rolled over when 23:59:59.999 rounds up. NULL for what is no date.
// roundedMoment gives it as strftime's time value and modifier, so a part of it is one strftime
// call: formatting the rounded value as text first, to have the part read back out of that text,
// cost a statement with a few dates most of its time.
QString roundedMoment(const QString &expr)
{
    return QStringLiteral("round((julianday(%1) - 2440587.5) * 25920000) / 300.0, 'unixepoch'").arg(expr);
}

QString roundedDateTime(const QString &expr)
{
    return QStringLiteral("strftime('%Y-%m-%d %H:%M:%f', %1)").arg(roundedMoment(expr));
}

bool isDateTimeType(const QString &base)
{
    return base == u"datetime" || base == u"smalldatetime";
}

QString datepartExpression(const QString &part, const QString &value)
{
    const QString expr = roundedMoment(value);
    static const QList<QPair<QStringList, QString>> parts = {
        {{QStringLiteral("year"), QStringLiteral("yy"), QStringLiteral("yyyy")}, QStringLiteral("%Y")},
        {{QStringLiteral("month"), QStringLiteral("mm"), QStringLiteral("m")}, QStringLiteral("%m")},
        {{QStringLiteral("day"), QStringLiteral("dd"), QStringLiteral("d")}, QStringLiteral("%d")},
        {{QStringLiteral("dayofyear"), QStringLiteral("dy"), QStringLiteral("y")}, QStringLiteral("%j")},
        {{QStringLiteral("hour"), QStringLiteral("hh")}, QStringLiteral("%H")},
        {{QStringLiteral("minute"), QStringLiteral("mi"), QStringLiteral("n")}, QStringLiteral("%M")},
        {{QStringLiteral("second"), QStringLiteral("ss"), QStringLiteral("s")}, QStringLiteral("%S")},
    };
    const QString p = part.trimmed().toLower();
    for (const auto &entry : parts) {
        if (entry.first.contains(p))
            return QStringLiteral("CAST(strftime('%1', %2) AS INTEGER)").arg(entry.second, expr);
    }
    if (p == u"millisecond" || p == u"ms") // %f is "SS.SSS"
        return QStringLiteral("CAST(substr(strftime('%f', %1), 4) AS INTEGER)").arg(expr);
    if (p == u"weekday" || p == u"dw")
        return QStringLiteral("(CAST(strftime('%w', %1) AS INTEGER) + 1)").arg(expr);
    return {};
}

// strftime pattern of a CONVERT style; empty when the style is not one the adapter knows.
QString convertStyle(const QString &style)
{
    const QString s = style.trimmed();
    if (s == u"112")
        return QStringLiteral("%Y%m%d");
    if (s == u"23")
        return QStringLiteral("%Y-%m-%d");
    if (s == u"108" || s == u"8")
        return QStringLiteral("%H:%M:%S");
    if (s == u"120" || s == u"20")
        return QStringLiteral("%Y-%m-%d %H:%M:%S");
    if (s == u"121" || s == u"21")
        return QStringLiteral("%Y-%m-%d %H:%M:%f");
    return {};
}

struct Emitted {
    QString text;
    bool isText = false; // the value is a character string
};

bool isKnownFunction(const QString &lname)
{
    static const QStringList names = {QStringLiteral("convert"),   QStringLiteral("cast"),   QStringLiteral("datepart"),
                                      QStringLiteral("right"),     QStringLiteral("left"),   QStringLiteral("substring"),
                                      QStringLiteral("isnull"),    QStringLiteral("len"),    QStringLiteral("getdate"),
                                      QStringLiteral("ltrim"),     QStringLiteral("rtrim"),  QStringLiteral("upper"),
                                      QStringLiteral("lower"),     QStringLiteral("replace"), QStringLiteral("datalength")};
    return names.contains(lname);
}

qsizetype skipSpaces(const QList<Node> &nodes, qsizetype i)
{
    while (i < nodes.size() && isSpace(nodes.at(i)))
        ++i;
    return i;
}

qsizetype skipSpacesBack(const QList<Node> &nodes, qsizetype i)
{
    while (i >= 0 && isSpace(nodes.at(i)))
        --i;
    return i;
}

bool isAnyWord(const Node &n, std::initializer_list<const char *> words)
{
    for (const char *w : words) {
        if (isWord(n, w))
            return true;
    }
    return false;
}

// "SELECT col FROM ...": one column, maybe qualified, of one SELECT without LIMIT. Returns the
// index just past the column, or -1 when the subquery is of another form.
qsizetype singleColumnEnd(const QList<Node> &inner)
{
    qsizetype k = skipSpaces(inner, 0);
    if (k >= inner.size() || !isWord(inner.at(k), "select"))
        return -1;
    k = skipSpaces(inner, k + 1);
    if (k >= inner.size() || !isName(inner.at(k)) || isAnyWord(inner.at(k), {"distinct", "all"}))
        return -1;
    ++k;
    while (k + 1 < inner.size() && isKind(inner.at(k), Kind::Dot) && isName(inner.at(k + 1)))
        k += 2;
    const qsizetype itemEnd = k;
    k = skipSpaces(inner, k);
    if (k == itemEnd || k >= inner.size() || !isWord(inner.at(k), "from"))
        return -1;
    for (const Node &x : inner) {
        if (isAnyWord(x, {"union", "intersect", "except", "limit"}))
            return -1;
    }
    return itemEnd;
}

// The column, maybe qualified, that stands right before nodes[in]; its first node, or -1.
qsizetype columnBefore(const QList<Node> &nodes, qsizetype in)
{
    qsizetype b = skipSpacesBack(nodes, in - 1);
    if (b < 0 || b == in - 1 || !isName(nodes.at(b)))
        return -1;
    while (b >= 2 && isKind(nodes.at(b - 1), Kind::Dot) && isName(nodes.at(b - 2)))
        b -= 2;
    if (isAnyWord(nodes.at(b), {"not", "and", "or", "where", "select", "exists", "case", "when", "then", "else", "end",
                                "is", "between", "like", "null"}))
        return -1;
    return b;
}

// Whether the clause from its WHERE up to nodes[b] is a run of plain conditions joined by AND/OR,
// nothing that could negate or compare what follows.
bool plainConditionsBefore(const QList<Node> &nodes, qsizetype b)
{
    qsizetype c = skipSpacesBack(nodes, b - 1);
    if (c < 0 || c == b - 1 || !isAnyWord(nodes.at(c), {"and", "where"}))
        return false;
    for (; c >= 0; --c) {
        const Node &x = nodes.at(c);
        if (isWord(x, "where"))
            return true;
        if (isAnyWord(x, {"not", "case", "between", "select", "from", "on", "join", "having", "union", "escape"})
            || isKind(x, Kind::Comma))
            return false;
    }
    return false;
}

// The subquery with its column named, so the outer test can compare with it.
QList<Node> withNamedColumn(QList<Node> inner, qsizetype itemEnd)
{
    Node as;
    as.tok = {Kind::Word, QStringLiteral("AS")};
    Node blank;
    blank.tok = {Kind::Space, QStringLiteral(" ")};
    Node alias;
    alias.tok = {Kind::Quoted, QStringLiteral("\"parcelwise_in_value\"")};
    inner.insert(itemEnd, alias);
    inner.insert(itemEnd, blank);
    inner.insert(itemEnd, as);
    inner.insert(itemEnd, blank);
    return inner;
}

// Whether nodes[in], the word IN, starts "x IN (SELECT col FROM ...)" whose only use is to let rows
// through a WHERE clause: x a column, the clause a run of conditions joined by AND/OR with nothing
// that could negate or compare the IN's own value. Then it can be asked as EXISTS (... WHERE x = col)
// with the same rows as a result; SQLite otherwise builds the subquery's whole list at every run
// of the statement, however few rows x takes.
struct CorrelatedIn {
    qsizetype lhsStart = -1; // first node of x
    qsizetype groupAt = -1;  // the subquery's group
    QList<Node> subquery;    // its children, the selected column named for the outer test
};

bool findCorrelatedIn(const QList<Node> &nodes, qsizetype in, CorrelatedIn *found)
{
    const qsizetype g = skipSpaces(nodes, in + 1);
    if (g >= nodes.size() || !nodes.at(g).group || !nodes.at(g).closed)
        return false;
    const qsizetype itemEnd = singleColumnEnd(nodes.at(g).children);
    if (itemEnd < 0)
        return false;
    const qsizetype after = skipSpaces(nodes, g + 1);
    if (after < nodes.size() && !isAnyWord(nodes.at(after), {"and", "or", "union", "order", "group"}))
        return false;
    const qsizetype b = columnBefore(nodes, in);
    if (b < 0 || !plainConditionsBefore(nodes, b))
        return false;
    found->lhsStart = b;
    found->groupAt = g;
    found->subquery = withNamedColumn(nodes.at(g).children, itemEnd);
    return true;
}

class Adapter {
public:
    QList<CrossDatabaseName> cross;

    QString list(const QList<Node> &nodes);

private:
    enum class ItemKind { Space, Operand, Plus, Other };
    struct Item {
        ItemKind kind;
        QString text;
        bool isText = false;
    };

    Emitted call(const Node &name, const QString &between, const Node &group);
    Emitted convertCall(const QList<QList<Node>> &args, const Emitted &untouched);
    Emitted castCall(const Node &group, const Emitted &untouched);
    qsizetype nameOrCall(const QList<Node> &nodes, qsizetype i, QList<Item> &items);
    static void joinTexts(QList<Item> &items);
    QString group(const Node &g) { return u'(' + list(g.children) + (g.closed ? QStringLiteral(")") : QString()); }
    static QList<QList<Node>> splitArgs(const QList<Node> &children);
};

QList<QList<Node>> Adapter::splitArgs(const QList<Node> &children)
{
    QList<QList<Node>> args(1);
    for (const Node &n : children) {
        if (isKind(n, Kind::Comma))
            args.append(QList<Node>());
        else
            args.last().append(n);
    }
    return args;
}

Emitted Adapter::convertCall(const QList<QList<Node>> &args, const Emitted &untouched)
{
    const TypeName type = parseType(list(args.at(0)));
    if (!type.valid)
        return untouched;
    const QString expr = list(args.at(1)).trimmed();
    if (isDateTimeType(type.base) && args.size() == 2)
        return {roundedDateTime(expr), false};
    if (!isCharType(type.base)) {
        const QString target = sqliteType(type.base);
        if (target.isEmpty() || args.size() != 2)
            return untouched;
        return {QStringLiteral("CAST(%1 AS %2)").arg(expr, target), false};
    }
    QString out;
    if (args.size() >= 3) {
        const QString pattern = convertStyle(list(args.at(2)));
        if (pattern.isEmpty())
            return untouched;
        out = QStringLiteral("strftime('%1', %2)").arg(pattern, roundedMoment(expr));
    } else {
        out = QStringLiteral("CAST(%1 AS TEXT)").arg(expr);
    }
    if (type.length >= 0)
        out = QStringLiteral("substr(%1, 1, %2)").arg(out).arg(type.length);
    return {out, true};
}

Emitted Adapter::castCall(const Node &g, const Emitted &untouched)
{
    qsizetype asAt = -1;
    for (qsizetype i = 0; i < g.children.size(); ++i) {
        if (isWord(g.children.at(i), "as"))
            asAt = i;
    }
    if (asAt < 0)
        return untouched;
    const QString expr = list(g.children.mid(0, asAt)).trimmed();
    const TypeName type = parseType(list(g.children.mid(asAt + 1)));
    if (type.valid && isDateTimeType(type.base))
        return {roundedDateTime(expr), false};
    const QString target = type.valid ? sqliteType(type.base) : QString();
    if (target.isEmpty())
        return untouched;
    QString out = QStringLiteral("CAST(%1 AS %2)").arg(expr, target);
    const bool text = isCharType(type.base);
    if (text && type.length >= 0)
        out = QStringLiteral("substr(%1, 1, %2)").arg(out).arg(type.length);
    return {out, text};
}

Emitted Adapter::call(const Node &name, const QString &between, const Node &g)
{
    const QString lname = name.tok.text.toLower();
    const auto args = splitArgs(g.children);
    auto arg = [&](int i) { return list(args.at(i)).trimmed(); };
    const Emitted untouched{name.tok.text + between + group(g), false};
    if (!g.closed)
        return untouched;
    if (lname == u"convert" && args.size() >= 2)
        return convertCall(args, untouched);
    if (lname == u"cast")
        return castCall(g, untouched);
    if (lname == u"datepart" && args.size() == 2) {
        const QString out = datepartExpression(list(args.at(0)), arg(1));
        return out.isEmpty() ? untouched : Emitted{out, false};
    }
    if (lname == u"right" && args.size() == 2) {
        // A count written out names the text once (the usual two-digit padding of a date part);
        // any other count needs the text's length, so the text is worked out twice.
        if (const int count = arg(1).toInt(); count > 0 && QString::number(count) == arg(1))
            return {QStringLiteral("substr(%1, -%2)").arg(arg(0), arg(1)), true};
        return {QStringLiteral("substr(%1, max(length(%1) - (%2) + 1, 1))").arg(arg(0), arg(1)), true};
    }
    if (lname == u"left" && args.size() == 2)
        return {QStringLiteral("substr(%1, 1, %2)").arg(arg(0), arg(1)), true};
    if (lname == u"substring" && args.size() == 3)
        return {QStringLiteral("substr(%1, %2, %3)").arg(arg(0), arg(1), arg(2)), true};
    if (lname == u"isnull" && args.size() == 2)
        return {QStringLiteral("ifnull(%1, %2)").arg(arg(0), arg(1)), false};
    if (lname == u"len" && args.size() == 1)
        return {QStringLiteral("length(rtrim(%1))").arg(arg(0)), false};
    // Bytes, not characters: a text counts in its stored encoding. typeof() and length() of a
    // column read only its header, so a long value's pages are never walked for its length.
    if (lname == u"datalength" && args.size() == 1)
        return {QStringLiteral("(CASE typeof(%1) WHEN 'text' THEN length(CAST(%1 AS BLOB)) ELSE length(%1) END)").arg(arg(0)),
                false};
    if (lname == u"getdate" && g.children.isEmpty())
        return {QStringLiteral("strftime('%Y-%m-%d %H:%M:%f', 'now', 'localtime')"), false};

    const bool text = lname == u"ltrim" || lname == u"rtrim" || lname == u"upper" || lname == u"lower"
        || lname == u"replace";
    return {untouched.text, text};
}

// A name at nodes[i]: "database..table", a function call, or a column maybe qualified. Returns
// the last node it took.
qsizetype Adapter::nameOrCall(const QList<Node> &nodes, qsizetype i, QList<Item> &items)
{
    const qsizetype n = nodes.size();
    const Node &node = nodes.at(i);
    if (i + 2 < n && isKind(nodes.at(i + 1), Kind::Dots) && isName(nodes.at(i + 2))) {
        const Node &table = nodes.at(i + 2);
        cross.append({unquote(node.tok), table.tok.text, node.tok.text + QStringLiteral("..") + table.tok.text});
        items.append({ItemKind::Operand, node.tok.text + u'.' + table.tok.text});
        return i + 2;
    }
    if (node.tok.kind == Kind::Word) {
        qsizetype j = i + 1;
        QString between;
        if (isKnownFunction(node.tok.text.toLower())) {
            for (; j < n && isSpace(nodes.at(j)); ++j)
                between += nodes.at(j).tok.text;
        }
        if (j < n && nodes.at(j).group) {
            const Emitted e = call(node, between, nodes.at(j));
            items.append({ItemKind::Operand, e.text, e.isText});
            return j;
        }
    }
    QString text = node.tok.text;
    while (i + 2 < n && isKind(nodes.at(i + 1), Kind::Dot) && isName(nodes.at(i + 2))) {
        text += u'.' + nodes.at(i + 2).tok.text;
        i += 2;
    }
    items.append({ItemKind::Operand, text});
    return i;
}

// "+" between texts is a concatenation: once a chain of operands joined by "+" holds a text,
// every later "+" of that chain joins texts as well (T-SQL evaluates left to right).
void Adapter::joinTexts(QList<Item> &items)
{
    bool chainText = false;
    ItemKind previous = ItemKind::Other;
    for (qsizetype i = 0; i < items.size(); ++i) {
        Item &item = items[i];
        if (item.kind == ItemKind::Space)
            continue;
        if (item.kind == ItemKind::Operand) {
            chainText = (previous == ItemKind::Plus ? chainText : false) || item.isText;
        } else if (item.kind == ItemKind::Plus && previous == ItemKind::Operand) {
            qsizetype j = i + 1;
            while (j < items.size() && items.at(j).kind == ItemKind::Space)
                ++j;
            const bool rightText = j < items.size() && items.at(j).kind == ItemKind::Operand && items.at(j).isText;
            if (chainText || rightText) {
                item.text = QStringLiteral("||");
                chainText = true;
            }
        } else if (item.kind == ItemKind::Other) {
            chainText = false;
        }
        previous = item.kind;
    }
}

QString Adapter::list(const QList<Node> &nodes)
{
    QList<Item> items;
    const qsizetype n = nodes.size();
    QList<qsizetype> itemsBefore(n + 1, -1); // items.size() when node i was reached; -1: taken with another
    for (qsizetype i = 0; i < n; ++i) {
        itemsBefore[i] = items.size();
        const Node &node = nodes.at(i);
        CorrelatedIn in;
        if (isWord(node, "in") && findCorrelatedIn(nodes, i, &in) && itemsBefore[in.lhsStart] >= 0) {
            qsizetype lhsEnd = i; // the blanks between the column and IN are not part of it
            while (lhsEnd > in.lhsStart && isSpace(nodes.at(lhsEnd - 1)))
                --lhsEnd;
            QString lhs;
            for (qsizetype k = itemsBefore[in.lhsStart]; k < itemsBefore[lhsEnd]; ++k)
                lhs += items.at(k).text;
            items.resize(itemsBefore[in.lhsStart]);
            items.append({ItemKind::Operand, QStringLiteral("EXISTS (SELECT 1 FROM (") + list(in.subquery)
                                                 + QStringLiteral(") AS \"parcelwise_in\" WHERE ") + lhs
                                                 + QStringLiteral(" = \"parcelwise_in\".\"parcelwise_in_value\")")});
            i = in.groupAt;
        } else if (node.group) {
            items.append({ItemKind::Operand, group(node)});
        } else if (isName(node)) {
            i = nameOrCall(nodes, i, items);
        } else {
            const Kind k = node.tok.kind;
            const ItemKind kind = k == Kind::Space ? ItemKind::Space
                : k == Kind::Plus                  ? ItemKind::Plus
                : k == Kind::String || k == Kind::Number ? ItemKind::Operand
                                                         : ItemKind::Other;
            items.append({kind, node.tok.text, k == Kind::String});
        }
    }
    joinTexts(items);
    QString out;
    for (const Item &item : std::as_const(items))
        out += item.text;
    return out;
}

} // namespace

AdaptedStatement adaptTSqlForSqlite(const QString &tsql)
{
    Adapter adapter;
    AdaptedStatement result;
    result.sql = adapter.list(parseNodes(tokenize(tsql)));
    result.crossNames = adapter.cross;
    return result;
}

} // namespace repo
