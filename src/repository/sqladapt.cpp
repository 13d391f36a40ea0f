#include "repository/sqladapt.h"

#include <QRegularExpression>
#include <QStringList>

namespace repo {
namespace {

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

bool isWordStart(QChar c)
{
    return c.isLetter() || c == u'_' || c == u'@' || c == u'#';
}

bool isWordPart(QChar c)
{
    return c.isLetterOrNumber() || c == u'_' || c == u'@' || c == u'#' || c == u'$';
}

QList<Token> tokenize(const QString &s)
{
    QList<Token> out;
    const qsizetype n = s.size();
    qsizetype i = 0;
    auto push = [&](Kind k, qsizetype from, qsizetype to) { out.append({k, s.mid(from, to - from)}); };
    while (i < n) {
        const QChar c = s.at(i);
        const qsizetype start = i;
        if (c.isSpace()) {
            while (i < n && s.at(i).isSpace())
                ++i;
            push(Kind::Space, start, i);
        } else if (c == u'-' && i + 1 < n && s.at(i + 1) == u'-') {
            while (i < n && s.at(i) != u'\n')
                ++i;
            push(Kind::Space, start, i);
        } else if (c == u'/' && i + 1 < n && s.at(i + 1) == u'*') {
            const qsizetype end = s.indexOf(QStringLiteral("*/"), i + 2);
            i = end < 0 ? n : end + 2;
            push(Kind::Space, start, i);
        } else if (c == u'\'') {
            ++i;
            while (i < n) {
                if (s.at(i) == u'\'') {
                    if (i + 1 < n && s.at(i + 1) == u'\'') {
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                ++i;
            }
            push(Kind::String, start, i);
        } else if ((c == u'N' || c == u'n') && i + 1 < n && s.at(i + 1) == u'\'') {
            // N'...' is a Unicode literal in T-SQL; SQLite's literals are Unicode anyway.
            ++i;
            continue;
        } else if (c == u'[') {
            QString name;
            ++i;
            while (i < n) {
                if (s.at(i) == u']') {
                    if (i + 1 < n && s.at(i + 1) == u']') {
                        name += u']';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                name += s.at(i++);
            }
            name.replace(u'"', QStringLiteral("\"\""));
            out.append({Kind::Quoted, u'"' + name + u'"'});
        } else if (c == u'"') {
            ++i;
            while (i < n) {
                if (s.at(i) == u'"') {
                    if (i + 1 < n && s.at(i + 1) == u'"') {
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                ++i;
            }
            push(Kind::Quoted, start, i);
        } else if (c.isDigit() || (c == u'.' && i + 1 < n && s.at(i + 1).isDigit())) {
            while (i < n && (s.at(i).isLetterOrNumber() || s.at(i) == u'.'))
                ++i;
            push(Kind::Number, start, i);
        } else if (isWordStart(c)) {
            while (i < n && isWordPart(s.at(i)))
                ++i;
            push(Kind::Word, start, i);
        } else if (c == u'.') {
            if (i + 1 < n && s.at(i + 1) == u'.') {
                i += 2;
                push(Kind::Dots, start, i);
            } else {
                ++i;
                push(Kind::Dot, start, i);
            }
        } else {
            ++i;
            Kind k = Kind::Other;
            if (c == u',')
                k = Kind::Comma;
            else if (c == u'(')
                k = Kind::Open;
            else if (c == u')')
                k = Kind::Close;
            else if (c == u'+')
                k = Kind::Plus;
            push(k, start, i);
        }
    }
    return out;
}

// A token, or a parenthesised group of nodes.
struct Node {
    Token tok;
    bool group = false;
    bool closed = false; // the group found its ")"
    QList<Node> children;
};

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

QString unquote(const Token &t)
{
    if (t.kind != Kind::Quoted)
        return t.text;
    QString s = t.text.mid(1, t.text.size() - 2);
    s.replace(QStringLiteral("\"\""), QStringLiteral("\""));
    return s;
}

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

QString datepartExpression(const QString &part, const QString &expr)
{
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

class Adapter {
public:
    QList<CrossDatabaseName> cross;

    QString list(const QList<Node> &nodes);

private:
    Emitted call(const Node &name, const QString &between, const Node &group);
    bool correlatedIn(const QList<Node> &nodes, qsizetype in, qsizetype *lhsStart, qsizetype *groupAt,
                      QList<Node> *subquery) const;
    QString group(const Node &g) { return u'(' + list(g.children) + (g.closed ? QStringLiteral(")") : QString()); }
    static QList<QList<Node>> splitArgs(const QList<Node> &children);
};

QList<QList<Node>> Adapter::splitArgs(const QList<Node> &children)
{
    QList<QList<Node>> args(1);
    for (const Node &n : children) {
        if (!n.group && n.tok.kind == Kind::Comma)
            args.append(QList<Node>());
        else
            args.last().append(n);
    }
    return args;
}

bool isKnownFunction(const QString &lname)
{
    static const QStringList names = {QStringLiteral("convert"),   QStringLiteral("cast"),   QStringLiteral("datepart"),
                                      QStringLiteral("right"),     QStringLiteral("left"),   QStringLiteral("substring"),
                                      QStringLiteral("isnull"),    QStringLiteral("len"),    QStringLiteral("getdate"),
                                      QStringLiteral("ltrim"),     QStringLiteral("rtrim"),  QStringLiteral("upper"),
                                      QStringLiteral("lower"),     QStringLiteral("replace")};
    return names.contains(lname);
}

Emitted Adapter::call(const Node &name, const QString &between, const Node &g)
{
    const QString lname = name.tok.text.toLower();
    const auto args = splitArgs(g.children);
    auto arg = [&](int i) { return list(args.at(i)).trimmed(); };
    auto untouched = [&]() { return Emitted{name.tok.text + between + group(g), false}; };
    if (!g.closed)
        return untouched();

    if (lname == u"convert" && args.size() >= 2) {
        const TypeName type = parseType(list(args.at(0)));
        if (!type.valid)
            return untouched();
        const QString expr = arg(1);
        if (isCharType(type.base)) {
            QString out;
            if (args.size() >= 3) {
                const QString pattern = convertStyle(list(args.at(2)));
                if (pattern.isEmpty())
                    return untouched();
                out = QStringLiteral("strftime('%1', %2)").arg(pattern, expr);
            } else {
                out = QStringLiteral("CAST(%1 AS TEXT)").arg(expr);
            }
            if (type.length >= 0)
                out = QStringLiteral("substr(%1, 1, %2)").arg(out).arg(type.length);
            return {out, true};
        }
        const QString target = sqliteType(type.base);
        if (target.isEmpty() || args.size() != 2)
            return untouched();
        return {QStringLiteral("CAST(%1 AS %2)").arg(expr, target), false};
    }

    if (lname == u"cast") {
        qsizetype asAt = -1;
        for (qsizetype i = 0; i < g.children.size(); ++i) {
            const Node &n = g.children.at(i);
            if (!n.group && n.tok.kind == Kind::Word && n.tok.text.compare(u"as", Qt::CaseInsensitive) == 0)
                asAt = i;
        }
        if (asAt < 0)
            return untouched();
        const QString expr = list(g.children.mid(0, asAt)).trimmed();
        const TypeName type = parseType(list(g.children.mid(asAt + 1)));
        const QString target = type.valid ? sqliteType(type.base) : QString();
        if (target.isEmpty())
            return untouched();
        QString out = QStringLiteral("CAST(%1 AS %2)").arg(expr, target);
        const bool text = isCharType(type.base);
        if (text && type.length >= 0)
            out = QStringLiteral("substr(%1, 1, %2)").arg(out).arg(type.length);
        return {out, text};
    }

    if (lname == u"datepart" && args.size() == 2) {
        const QString out = datepartExpression(list(args.at(0)), arg(1));
        if (out.isEmpty())
            return untouched();
        return {out, false};
    }

    if (lname == u"right" && args.size() == 2) {
        const QString s = arg(0), n = arg(1);
        return {QStringLiteral("substr(%1, max(length(%1) - (%2) + 1, 1))").arg(s, n), true};
    }
    if (lname == u"left" && args.size() == 2)
        return {QStringLiteral("substr(%1, 1, %2)").arg(arg(0), arg(1)), true};
    if (lname == u"substring" && args.size() == 3)
        return {QStringLiteral("substr(%1, %2, %3)").arg(arg(0), arg(1), arg(2)), true};
    if (lname == u"isnull" && args.size() == 2)
        return {QStringLiteral("ifnull(%1, %2)").arg(arg(0), arg(1)), false};
    if (lname == u"len" && args.size() == 1)
        return {QStringLiteral("length(rtrim(%1))").arg(arg(0)), false};
    if (lname == u"getdate" && g.children.isEmpty())
        return {QStringLiteral("strftime('%Y-%m-%d %H:%M:%f', 'now', 'localtime')"), false};

    const bool text = lname == u"ltrim" || lname == u"rtrim" || lname == u"upper" || lname == u"lower"
        || lname == u"replace";
    return {name.tok.text + between + group(g), text};
}

bool isWord(const Node &n, const char *word)
{
    return !n.group && n.tok.kind == Kind::Word && n.tok.text.compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
}

bool isSpace(const Node &n)
{
    return !n.group && n.tok.kind == Kind::Space;
}

// Whether nodes[in], the word IN, starts "x IN (SELECT col FROM ...)" whose only use is to let rows
// through a WHERE clause: x a column, the clause a run of conditions joined by AND/OR with nothing
// that could negate or compare the IN's own value. Then it can be asked as EXISTS (... WHERE x = col)
// with the same rows as a result; SQLite otherwise builds the subquery's whole list at every run
// of the statement, however few rows x takes. lhsStart receives the first node of x, groupAt the
// subquery's group, subquery its children with the selected column named for the outer test.
bool Adapter::correlatedIn(const QList<Node> &nodes, qsizetype in, qsizetype *lhsStart, qsizetype *groupAt,
                           QList<Node> *subquery) const
{
    const auto isName = [](const Node &x) { return !x.group && (x.tok.kind == Kind::Word || x.tok.kind == Kind::Quoted); };
    const qsizetype n = nodes.size();
    qsizetype g = in + 1;
    while (g < n && isSpace(nodes.at(g)))
        ++g;
    if (g >= n || !nodes.at(g).group || !nodes.at(g).closed)
        return false;

    // The subquery: SELECT, one column (maybe qualified), FROM; one SELECT without LIMIT.
    const QList<Node> &inner = nodes.at(g).children;
    qsizetype k = 0;
    while (k < inner.size() && isSpace(inner.at(k)))
        ++k;
    if (k >= inner.size() || !isWord(inner.at(k), "select"))
        return false;
    ++k;
    while (k < inner.size() && isSpace(inner.at(k)))
        ++k;
    if (k >= inner.size() || !isName(inner.at(k)) || isWord(inner.at(k), "distinct") || isWord(inner.at(k), "all"))
        return false;
    ++k;
    while (k + 1 < inner.size() && !inner.at(k).group && inner.at(k).tok.kind == Kind::Dot && isName(inner.at(k + 1)))
        k += 2;
    const qsizetype itemEnd = k;
    while (k < inner.size() && isSpace(inner.at(k)))
        ++k;
    if (k == itemEnd || k >= inner.size() || !isWord(inner.at(k), "from"))
        return false;
    for (const Node &x : inner) {
        for (const char *w : {"union", "intersect", "except", "limit"}) {
            if (isWord(x, w))
                return false;
        }
    }

    // What follows the IN: the end, or the next condition or clause.
    qsizetype after = g + 1;
    while (after < n && isSpace(nodes.at(after)))
        ++after;
    if (after < n) {
        bool allowed = false;
        for (const char *w : {"and", "or", "union", "order", "group"})
            allowed = allowed || isWord(nodes.at(after), w);
        if (!allowed)
            return false;
    }

    // x: a column, maybe qualified, right before IN.
    qsizetype b = in - 1;
    while (b >= 0 && isSpace(nodes.at(b)))
        --b;
    if (b < 0 || b == in - 1 || !isName(nodes.at(b)))
        return false;
    while (b >= 2 && !nodes.at(b - 1).group && nodes.at(b - 1).tok.kind == Kind::Dot && isName(nodes.at(b - 2)))
        b -= 2;
    *lhsStart = b;
    for (const char *w : {"not", "and", "or", "where", "select", "exists", "case", "when", "then", "else", "end", "is",
                          "between", "like", "null"}) {
        if (isWord(nodes.at(b), w))
            return false;
    }

    // Back to this clause's WHERE over plain conditions joined by AND/OR.
    qsizetype c = b - 1;
    while (c >= 0 && isSpace(nodes.at(c)))
        --c;
    if (c < 0 || c == b - 1 || !(isWord(nodes.at(c), "and") || isWord(nodes.at(c), "where")))
        return false;
    for (; c >= 0; --c) {
        const Node &x = nodes.at(c);
        if (isWord(x, "where"))
            break;
        for (const char *w : {"not", "case", "between", "select", "from", "on", "join", "having", "union", "escape"}) {
            if (isWord(x, w))
                return false;
        }
        if (!x.group && x.tok.kind == Kind::Comma)
            return false;
    }
    if (c < 0)
        return false;

    *groupAt = g;
    *subquery = inner;
    Node as;
    as.tok = {Kind::Word, QStringLiteral("AS")};
    Node blank;
    blank.tok = {Kind::Space, QStringLiteral(" ")};
    Node alias;
    alias.tok = {Kind::Quoted, QStringLiteral("\"parcelwise_in_value\"")};
    subquery->insert(itemEnd, alias);
    subquery->insert(itemEnd, blank);
    subquery->insert(itemEnd, as);
    subquery->insert(itemEnd, blank);
    return true;
}

QString Adapter::list(const QList<Node> &nodes)
{
    enum class ItemKind { Space, Operand, Plus, Other };
    struct Item {
        ItemKind kind;
        QString text;
        bool isText = false;
    };
    QList<Item> items;

    const qsizetype n = nodes.size();
    auto isName = [](const Node &x) { return !x.group && (x.tok.kind == Kind::Word || x.tok.kind == Kind::Quoted); };
    QList<qsizetype> itemsBefore(n + 1, -1); // items.size() when node i was reached; -1: taken with another
    for (qsizetype i = 0; i < n; ++i) {
        itemsBefore[i] = items.size();
        const Node &node = nodes.at(i);
        qsizetype lhsStart = 0, groupAt = 0;
        QList<Node> subquery;
        if (isWord(node, "in") && correlatedIn(nodes, i, &lhsStart, &groupAt, &subquery) && itemsBefore[lhsStart] >= 0) {
            qsizetype lhsEnd = i; // the blanks between the column and IN are not part of it
            while (lhsEnd > lhsStart && isSpace(nodes.at(lhsEnd - 1)))
                --lhsEnd;
            QString lhs;
            for (qsizetype k = itemsBefore[lhsStart]; k < itemsBefore[lhsEnd]; ++k)
                lhs += items.at(k).text;
            items.resize(itemsBefore[lhsStart]);
            items.append({ItemKind::Operand,
                          QStringLiteral("EXISTS (SELECT 1 FROM (") + list(subquery)
                              + QStringLiteral(") AS \"parcelwise_in\" WHERE ") + lhs
                              + QStringLiteral(" = \"parcelwise_in\".\"parcelwise_in_value\")")});
            i = groupAt;
            continue;
        }
        if (node.group) {
            items.append({ItemKind::Operand, group(node)});
            continue;
        }
        switch (node.tok.kind) {
        case Kind::Space:
            items.append({ItemKind::Space, node.tok.text});
            break;
        case Kind::String:
            items.append({ItemKind::Operand, node.tok.text, true});
            break;
        case Kind::Number:
            items.append({ItemKind::Operand, node.tok.text});
            break;
        case Kind::Plus:
            items.append({ItemKind::Plus, node.tok.text});
            break;
        case Kind::Word:
        case Kind::Quoted: {
            // database..table
            if (i + 2 < n && !nodes.at(i + 1).group && nodes.at(i + 1).tok.kind == Kind::Dots && isName(nodes.at(i + 2))) {
                const Node &table = nodes.at(i + 2);
                cross.append({unquote(node.tok), table.tok.text, node.tok.text + QStringLiteral("..") + table.tok.text});
                items.append({ItemKind::Operand, node.tok.text + u'.' + table.tok.text});
                i += 2;
                break;
            }
            // a function call: the name, maybe blanks, the argument group
            if (node.tok.kind == Kind::Word) {
                qsizetype j = i + 1;
                QString between;
                const bool known = isKnownFunction(node.tok.text.toLower());
                while (known && j < n && !nodes.at(j).group && nodes.at(j).tok.kind == Kind::Space)
                    between += nodes.at(j++).tok.text;
                if (j < n && nodes.at(j).group) {
                    const Emitted e = call(node, between, nodes.at(j));
                    items.append({ItemKind::Operand, e.text, e.isText});
                    i = j;
                    break;
                }
            }
            // a column, maybe qualified: a.b
            QString text = node.tok.text;
            while (i + 2 < n && !nodes.at(i + 1).group && nodes.at(i + 1).tok.kind == Kind::Dot && isName(nodes.at(i + 2))) {
                text += u'.' + nodes.at(i + 2).tok.text;
                i += 2;
            }
            items.append({ItemKind::Operand, text});
            break;
        }
        default:
            items.append({ItemKind::Other, node.tok.text});
            break;
        }
    }

    // "+" between texts is a concatenation: once a chain of operands joined by "+" holds a text,
    // every later "+" of that chain joins texts as well (T-SQL evaluates left to right).
    bool chainText = false;
    ItemKind previous = ItemKind::Other;
    for (qsizetype i = 0; i < items.size(); ++i) {
        Item &item = items[i];
        switch (item.kind) {
        case ItemKind::Space:
            break;
        case ItemKind::Operand:
            chainText = (previous == ItemKind::Plus ? chainText : false) || item.isText;
            previous = ItemKind::Operand;
            break;
        case ItemKind::Plus: {
            if (previous == ItemKind::Operand) {
                qsizetype j = i + 1;
                while (j < items.size() && items.at(j).kind == ItemKind::Space)
                    ++j;
                const bool rightText = j < items.size() && items.at(j).kind == ItemKind::Operand && items.at(j).isText;
                if (chainText || rightText) {
                    item.text = QStringLiteral("||");
                    chainText = true;
                }
            }
            previous = ItemKind::Plus;
            break;
        }
        case ItemKind::Other:
            chainText = false;
            previous = ItemKind::Other;
            break;
        }
    }

    QString out;
    for (const Item &item : std::as_const(items))
        out += item.text;
    return out;
}

} // namespace

AdaptedStatement adaptTSqlForSqlite(const QString &tsql)
{
    const QList<Token> tokens = tokenize(tsql);
    qsizetype pos = 0;
    bool closed = false;
    const QList<Node> nodes = parseNodes(tokens, pos, 0, &closed);
    Adapter adapter;
    AdaptedStatement result;
    result.sql = adapter.list(nodes);
    result.crossNames = adapter.cross;
    return result;
}

ParameterizedStatement parameterizeTSql(const QString &tsql)
{
    // Runs once for every statement sent, the long date statement included, so it scans without
    // building anything and copies only around the numbers it takes out.
    ParameterizedStatement result;
    const QChar *s = tsql.constData();
    const qsizetype n = tsql.size();
    const auto digit = [](QChar c) { return c >= u'0' && c <= u'9'; };
    const auto wordPart = [](QChar c) {
        const char16_t u = c.unicode();
        if (u < 128)
            return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'_'
                || u == u'@' || u == u'#' || u == u'$';
        return isWordPart(c);
    };
    const auto wordStart = [](QChar c) {
        const char16_t u = c.unicode();
        if (u < 128)
            return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || u == u'_' || u == u'@' || u == u'#';
        return isWordStart(c);
    };
    const auto space = [](QChar c) { return c == u' ' || (c.unicode() < 128 ? (c >= u'\t' && c <= u'\r') : c.isSpace()); };
    // Moves i past a quoted run that ends at `close`, where a doubled `close` stands for itself.
    const auto skipQuoted = [&](qsizetype i, QChar close) {
        for (++i; i < n; ++i) {
            if (s[i] == close) {
                if (i + 1 < n && s[i + 1] == close) {
                    ++i;
                    continue;
                }
                return i + 1;
            }
        }
        return n;
    };

    qsizetype copied = 0; // tsql[0, copied) is in result.text already
    bool afterEquals = false; // "=" seen, then only blanks and "("
    qsizetype i = 0;
    while (i < n) {
        const QChar c = s[i];
        if (c == u'?')
            return {tsql, {}}; // placeholders of its own: leave the statement alone
        if (c == u'\'' || c == u'"' || c == u'[') {
            i = skipQuoted(i, c == u'[' ? QChar(u']') : c);
            afterEquals = false;
        } else if (c == u'-' && i + 1 < n && s[i + 1] == u'-') {
            while (i < n && s[i] != u'\n')
                ++i;
        } else if (c == u'/' && i + 1 < n && s[i + 1] == u'*') {
            const qsizetype end = tsql.indexOf(QStringLiteral("*/"), i + 2);
            i = end < 0 ? n : end + 2;
        } else if (digit(c) && afterEquals) {
            qsizetype j = i;
            while (j < n && digit(s[j]))
                ++j;
            // Only a plain whole number that ends the operand: "5.0", "5e3", "0x1F" or "5 + x"
            // stay as written, so the adapter sees them exactly as before.
            qsizetype k = j;
            while (k < n && space(s[k]))
                ++k;
            const bool joined = j < n && (wordPart(s[j]) || s[j] == u'.');
            const bool ends = k == n || s[k] == u')' || s[k] == u';' || (k > j && wordStart(s[k]));
            bool ok = false;
            const qint64 value = j - i <= 18 ? QStringView(s + i, j - i).toLongLong(&ok) : 0;
            if (!joined && ends && ok) {
                if (result.text.isEmpty())
                    result.text.reserve(n + 8);
                result.text.append(s + copied, i - copied);
                result.values.append(value);
                result.text += u'?' + QString::number(result.values.size());
                copied = j;
            }
            i = j;
            afterEquals = false;
        } else if (wordPart(c)) {
            while (i < n && wordPart(s[i]))
                ++i;
            afterEquals = false;
        } else {
            ++i;
            if (c == u'=')
                afterEquals = true;
            else if (!space(c) && c != u'(')
                afterEquals = false;
        }
    }
    if (result.values.isEmpty())
        result.text = tsql;
    else
        result.text.append(s + copied, n - copied);
    return result;
}

} // namespace repo
