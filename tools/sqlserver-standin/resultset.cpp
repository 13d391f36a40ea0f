#include "resultset.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QStringEncoder>

namespace standin {

namespace {

enum TypeByte : quint8 { kIntN = 0x26, kImage = 0x22, kText = 0x23, kNText = 0x63, kFloatN = 0x6D,
                         kDateTimeN = 0x6F, kBigVarChar = 0xA7, kNVarChar = 0xE7 };
constexpr int kShortTextBytes = 8000; // nvarchar(4000), varchar(8000)

bool sameName(const QString &name, std::initializer_list<const char *> names)
{
    for (const char *n : names)
        if (name.compare(QLatin1String(n), Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

// The name SQL Server gives a result column: the column's own name, or none for an expression
// without an alias (SQLite names it after its text, "count(*)").
QString bareName(const QString &name)
{
    static const QRegularExpression identifier(QStringLiteral(R"(^[A-Za-z_@#][\w@#$]*$)"));
    const qsizetype dot = name.lastIndexOf(u'.');
    const QString bare = dot < 0 ? name : name.mid(dot + 1);
    return identifier.match(bare).hasMatch() ? bare : QString();
}

bool isDateColumn(const QString &name)
{
    return sameName(name, {"FileActualDate", "File_DateUploaded", "TS"});
}

// Texts of the repository's columns are nvarchar; the tool's computed date texts and its literal
// 'LIVE'/'ARCHIVE' column are varchar.
bool isUnicodeColumn(const QString &name)
{
    return !sameName(name, {"FileActualDate", "File_DateUploaded", "FOLDER"});
}

// A date-time as the embedded files keep it: "2019-03-01 14:05:09.123".
QDateTime parseStoredDateTime(const QString &text)
{
    static const QRegularExpression form(QStringLiteral(R"(^\d{4}-\d{2}-\d{2}[ T]\d{2}:\d{2}(:\d{2}(\.\d{1,3})?)?$)"));
    if (!form.match(text).hasMatch())
        return {};
    QString t = text;
    t[10] = u'T';
    QDateTime dt = QDateTime::fromString(t, Qt::ISODateWithMs);
    dt.setTimeSpec(Qt::UTC);
    return dt;
}

ColumnKind kindOfValue(const QString &name, const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::QByteArray:
        return ColumnKind::Image;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Bool:
        return ColumnKind::Int;
    case QMetaType::LongLong:
    case QMetaType::ULongLong: {
        const qint64 n = v.toLongLong();
        return (n >= INT32_MIN && n <= INT32_MAX) ? ColumnKind::Int : ColumnKind::BigInt;
    }
    case QMetaType::Double:
        return ColumnKind::Float;
    case QMetaType::QDateTime:
        return ColumnKind::DateTime;
    default:
        break;
    }
    if (isDateColumn(name) && parseStoredDateTime(v.toString()).isValid())
        return ColumnKind::DateTime;
    return isUnicodeColumn(name) ? ColumnKind::NVarChar : ColumnKind::VarChar;
}

ColumnKind kindOfName(const QString &name)
{
    if (sameName(name, {"file_data", "FileData"}))
        return ColumnKind::Image;
    if (sameName(name, {"rec_id", "Folder_Parent", "IsAdmin", "Icon_rec_id", "folder_rec_id", "com_id",
                        "live_com_id", "FileID", "parent_rec_id", "child_rec_id", "relative_level_no", "dbid"}))
        return ColumnKind::Int;
    if (isDateColumn(name))
        return ColumnKind::DateTime;
    return isUnicodeColumn(name) ? ColumnKind::NVarChar : ColumnKind::VarChar;
}

// The types the repository's tables declare, by column name; false for a name it does not hold.
bool declaredKind(const QString &name, ColumnKind &kind)
{
    if (sameName(name, {"Folder_Name", "Folder_Type", "File_Name", "File_Description", "Com_db", "com_type"})) {
        kind = ColumnKind::NVarChar;
        return true;
    }
    const ColumnKind named = kindOfName(name);
    if (named == ColumnKind::NVarChar || named == ColumnKind::VarChar)
        return false;
    kind = named;
    return true;
}

// Whether v can be a value of the declared kind; failure says why not.
bool fits(ColumnKind kind, const QVariant &v, TypeFailure &failure)
{
    if (v.isNull())
        return true;
    if (kind == ColumnKind::Int) {
        bool ok = false;
        const qint64 n = v.toLongLong(&ok);
        if (ok && n >= INT32_MIN && n <= INT32_MAX && v.typeId() != QMetaType::Double)
            return true;
        failure = {245, QStringLiteral("Conversion failed when converting the nvarchar value '%1' to data type int.")
                            .arg(v.toString())};
        return false;
    }
    if (kind == ColumnKind::DateTime && v.typeId() != QMetaType::QDateTime
        && !parseStoredDateTime(v.toString()).isValid()) {
        failure = {241, QStringLiteral("Conversion failed when converting date and/or time from character string.")};
        return false;
    }
    return true;
}

void writeTypeInfo(TokenWriter &out, const ResultColumn &c)
{
    switch (c.kind) {
    case ColumnKind::Int:
        out.u8(kIntN);
        out.u8(4);
        break;
    case ColumnKind::BigInt:
        out.u8(kIntN);
        out.u8(8);
        break;
    case ColumnKind::Float:
        out.u8(kFloatN);
        out.u8(8);
        break;
    case ColumnKind::DateTime:
        out.u8(kDateTimeN);
        out.u8(8);
        break;
    case ColumnKind::NVarChar:
    case ColumnKind::VarChar:
        if (c.max && out.tds < 0x72) { // no (n)varchar(max) before 7.2: ntext and text
            out.u8(c.kind == ColumnKind::NVarChar ? kNText : kText);
            out.u32(c.kind == ColumnKind::NVarChar ? 0x7FFFFFFE : 0x7FFFFFFF);
            out.bytes(serverCollation());
            out.usVarchar(QString()); // no table: an expression
            break;
        }
        out.u8(c.kind == ColumnKind::NVarChar ? kNVarChar : kBigVarChar);
        out.u16(c.max ? 0xFFFF : kShortTextBytes);
        out.bytes(serverCollation());
        break;
    case ColumnKind::Image: {
        out.u8(kImage);
        out.u32(0x7FFFFFFF);
        const QString table = sameName(c.name, {"FileData"}) ? QStringLiteral("zar_FileArchive") : QStringLiteral("zar_file");
        if (out.tds < 0x72) { // the table's name whole
            out.usVarchar(QStringLiteral("dbo.") + table);
            break;
        }
        out.u8(2); // the table's name in parts
        out.usVarchar(QStringLiteral("dbo"));
        out.usVarchar(table);
        break;
    }
    }
}

QByteArray textBytes(const ResultColumn &c, const QVariant &v)
{
    const QString s = v.toString();
    if (c.kind == ColumnKind::VarChar) {
        // The collation's code page, CP1252 ("€" is 0x80); what it lacks is "?", as on the server.
        QStringEncoder cp1252("windows-1252");
        if (!cp1252.isValid())
            return s.toLatin1();
        QByteArray b = cp1252.encode(s);
        if (!s.contains(QChar(0x1A))) // the encoder's own mark for what it lacks
            b.replace('\x1A', '?');
        return b;
    }
    return QByteArray(reinterpret_cast<const char *>(s.utf16()), s.size() * 2);
}

// image, and text and ntext before TDS 7.2: a text pointer, a time stamp, the bytes.
void writeImage(TokenWriter &out, bool null, QByteArray b, qint64 textSize)
{
    if (null) {
        out.u8(0);
        return;
    }
    if (b.size() > textSize)
        b.truncate(textSize);
    out.u8(16);
    out.bytes(QByteArray(16, '\xEE')); // text pointer
    out.bytes(QByteArray(8, '\0'));    // time stamp
    out.u32(quint32(b.size()));
    out.bytes(b);
}

void writeText(TokenWriter &out, const ResultColumn &c, const QVariant &v, qint64 textSize)
{
    if (!c.max) {
        if (v.isNull()) {
            out.u16(0xFFFF);
            return;
        }
        const QByteArray b = textBytes(c, v);
        out.u16(quint16(b.size()));
        out.bytes(b);
        return;
    }
    QByteArray b = v.isNull() ? QByteArray() : textBytes(c, v);
    if (b.size() > textSize) // varchar(max) and nvarchar(max) are cut as image is (whole characters)
        b.truncate(c.kind == ColumnKind::NVarChar ? textSize & ~qint64(1) : textSize);
    if (out.tds < 0x72) { // text and ntext: as image
        writeImage(out, v.isNull(), b, textSize);
        return;
    }
    if (v.isNull()) {
        out.u64(~quint64(0));
        return;
    }
    out.u64(quint64(b.size()));
    if (!b.isEmpty()) {
        out.u32(quint32(b.size()));
        out.bytes(b);
    }
    out.u32(0);
}

void writeDateTime(TokenWriter &out, const QVariant &v)
{
    const QDateTime dt = v.typeId() == QMetaType::QDateTime ? v.toDateTime() : parseStoredDateTime(v.toString());
    if (v.isNull() || !dt.isValid()) {
        out.u8(0);
        return;
    }
    // Rounded to three hundredths of a second first: 23:59:59.999 is midnight of the next day.
    static const QDate epoch(1900, 1, 1);
    constexpr qint64 ticksPerDay = 24 * 60 * 60 * 300;
    const qint64 ticks = (qint64(dt.time().msecsSinceStartOfDay()) * 3 + 5) / 10;
    out.u8(8);
    out.u32(quint32(qint32(epoch.daysTo(dt.date()) + ticks / ticksPerDay)));
    out.u32(quint32(ticks % ticksPerDay));
}


} // namespace

QList<ResultColumn> typeColumns(const QStringList &names, const QList<QVariantList> &rows,
                                const QStringList &sources, TypeFailure *failure)
{
    QList<ResultColumn> columns;
    for (int c = 0; c < names.size(); ++c) {
        ResultColumn col;
        col.name = bareName(names.at(c));
        const QVariant *first = nullptr;
        for (const QVariantList &row : rows)
            if (c < row.size() && !row.at(c).isNull()) {
                first = &row.at(c);
                break;
            }
        col.kind = first ? kindOfValue(col.name, *first) : kindOfName(col.name);
        if (failure && declaredKind(sources.value(c), col.kind)) {
            for (const QVariantList &row : rows)
                if (!fits(col.kind, row.value(c), *failure))
                    return {};
        }
        if (col.kind == ColumnKind::NVarChar || col.kind == ColumnKind::VarChar) {
            const int limit = col.kind == ColumnKind::NVarChar ? kShortTextBytes / 2 : kShortTextBytes;
            for (const QVariantList &row : rows)
                if (c < row.size() && row.at(c).toString().size() > limit)
                    col.max = true;
        }
        columns << col;
    }
    return columns;
}

void writeColumns(TokenWriter &out, const QList<ResultColumn> &columns)
{
    out.u8(0x81);
    out.u16(quint16(columns.size()));
    for (const ResultColumn &c : columns) {
        if (out.tds >= 0x72) // user type
            out.u32(0);
        else
            out.u16(0);
        out.u16(0x0001); // nullable
        writeTypeInfo(out, c);
        out.bVarchar(c.name);
    }
}

void writeRow(TokenWriter &out, const QList<ResultColumn> &columns, const QVariantList &row, qint64 textSize)
{
    out.u8(0xD1);
    for (int c = 0; c < columns.size(); ++c) {
        const ResultColumn &col = columns.at(c);
        const QVariant v = row.value(c);
        switch (col.kind) {
        case ColumnKind::Int:
        case ColumnKind::BigInt: {
            const quint8 size = col.kind == ColumnKind::Int ? 4 : 8;
            out.u8(v.isNull() ? 0 : size);
            if (!v.isNull()) {
                if (size == 4)
                    out.u32(quint32(qint32(v.toLongLong())));
                else
                    out.u64(quint64(v.toLongLong()));
            }
            break;
        }
        case ColumnKind::Float: {
            out.u8(v.isNull() ? 0 : 8);
            if (!v.isNull()) {
                const double d = v.toDouble();
                quint64 bits;
                memcpy(&bits, &d, 8);
                out.u64(bits);
            }
            break;
        }
        case ColumnKind::DateTime:
            writeDateTime(out, v);
            break;
        case ColumnKind::NVarChar:
        case ColumnKind::VarChar:
            writeText(out, col, v, textSize);
            break;
        case ColumnKind::Image:
            writeImage(out, v.isNull(), v.toByteArray(), textSize);
            break;
        }
    }
}

} // namespace standin
