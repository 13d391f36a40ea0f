// SQLite's own API on the connection Qt opened: the one file that calls it directly.

#include "repository/sqliteblob.h"

#include "errors/hunterr.h"
#include "repository/tsqllexer.h"

#include <QSqlDriver>

#include <unordered_map>

#ifdef PARCELWISE_HAVE_SQLITE3
#include <sqlite3.h>
#endif

namespace repo {

#ifdef PARCELWISE_HAVE_SQLITE3

namespace {

// The statement with its last result column replaced by the rowid, type and length of the value
// it names ("a.file_data" -> "a.rowid, typeof(a.file_data), length(a.file_data)"), so that
// running it never loads the value (SQLite reads neither for typeof nor for length).
// "" when the last column is not a qualified column name.
QString locatingText(const QString &sql)
{
    const QList<tsql::Token> tokens = tsql::tokenize(sql);
    int depth = 0;
    qsizetype itemStart = -1, from = -1, offset = 0;
    QList<qsizetype> starts;
    for (qsizetype i = 0; i < tokens.size() && from < 0; ++i) {
        starts << offset;
        const tsql::Token &t = tokens.at(i);
        offset += t.text.size();
        if (t.kind == tsql::Kind::Open)
            ++depth;
        else if (t.kind == tsql::Kind::Close)
            --depth;
        else if (depth == 0 && t.kind == tsql::Kind::Comma)
            itemStart = i + 1;
        else if (depth == 0 && t.kind == tsql::Kind::Word && t.text.compare(u"from", Qt::CaseInsensitive) == 0)
            from = i;
    }
    if (itemStart < 0 || from < 0 || itemStart > from)
        return {};
    QList<tsql::Token> item;
    for (qsizetype i = itemStart; i < from; ++i) {
        if (tokens.at(i).kind != tsql::Kind::Space)
            item << tokens.at(i);
    }
    const auto isName = [](const tsql::Token &t) { return t.kind == tsql::Kind::Word || t.kind == tsql::Kind::Quoted; };
    if (item.size() != 3 || !isName(item[0]) || item[1].kind != tsql::Kind::Dot || !isName(item[2]))
        return {};
    const QString value = item[0].text + u'.' + item[2].text;
    return sql.left(starts.at(itemStart)) + QLatin1Char(' ') + item[0].text + QStringLiteral(".rowid, typeof(") + value
        + QStringLiteral("), length(") + value + QStringLiteral(") ") + sql.mid(starts.at(from));
}

QVariant columnValue(sqlite3_stmt *stmt, int c)
{
    switch (sqlite3_column_type(stmt, c)) {
    case SQLITE_INTEGER:
        return QVariant(qint64(sqlite3_column_int64(stmt, c)));
    case SQLITE_FLOAT:
        return QVariant(sqlite3_column_double(stmt, c));
    case SQLITE_BLOB:
        return QVariant(QByteArray(static_cast<const char *>(sqlite3_column_blob(stmt, c)), sqlite3_column_bytes(stmt, c)));
    case SQLITE_NULL:
        return QVariant();
    default:
        return QVariant(QString(static_cast<const QChar *>(sqlite3_column_text16(stmt, c)),
                                sqlite3_column_bytes16(stmt, c) / qsizetype(sizeof(QChar))));
    }
}

class BlobValue final : public BackendStream {
public:
    BlobValue(Backend &backend, sqlite3_blob *blob) : BackendStream(backend), m_blob(blob), m_size(sqlite3_blob_bytes(blob)) {}
    ~BlobValue() override { end(); }

    qint64 read(char *buffer, qint64 max) override
    {
        if (!m_blob)
            raiseEnded();
        const int n = int(qMin<qint64>(qMin<qint64>(max, m_size - m_at), 1 << 30));
        if (n <= 0)
            return 0;
        const int rc = sqlite3_blob_read(m_blob, buffer, n, int(m_at));
        if (rc != SQLITE_OK) {
            const QString why = QString::fromUtf8(sqlite3_errstr(rc));
            Backend *owner = backend();
            end();
            if (owner)
                owner->fail(HuntERR::ERR_GENERAL, QStringLiteral("The value could not be read: %1").arg(why));
            HuntERR::raise(HuntERR::ERR_GENERAL, QStringLiteral("The value could not be read: %1").arg(why), kProvider);
        }
        m_at += n;
        return n;
    }
    qint64 size() const override { return m_size; }
    void end() override
    {
        if (m_blob)
            sqlite3_blob_close(m_blob);
        m_blob = nullptr;
    }

private:
    sqlite3_blob *m_blob;
    qint64 m_size;
    qint64 m_at = 0;
};

} // namespace

struct SqliteBlobReader::Plan {
    sqlite3_stmt *stmt = nullptr; // the locating statement
    QByteArray database, table, column;
    QStringList names; // the leading columns
    ~Plan() { sqlite3_finalize(stmt); }
};

struct SqliteBlobReader::Impl {
    sqlite3 *db = nullptr;
    // Per shape, as the server keeps its prepared statements; a shape that cannot be served
    // this way is remembered as such (null).
    std::unordered_map<QString, std::unique_ptr<Plan>> plans;

    std::unique_ptr<Plan> plan(const QString &sql) const
    {
        // The value's table and column, as SQLite resolves them.
        sqlite3_stmt *probe = nullptr;
        if (sqlite3_prepare16_v2(db, sql.utf16(), -1, &probe, nullptr) != SQLITE_OK || !probe) {
            sqlite3_finalize(probe);
            return nullptr;
        }
        auto p = std::make_unique<Plan>();
        const int last = sqlite3_column_count(probe) - 1;
        const char *database = last >= 0 ? sqlite3_column_database_name(probe, last) : nullptr;
        const char *table = last >= 0 ? sqlite3_column_table_name(probe, last) : nullptr;
        const char *column = last >= 0 ? sqlite3_column_origin_name(probe, last) : nullptr;
        if (database && table && column) {
            p->database = database;
            p->table = table;
            p->column = column;
            for (int c = 0; c < last; ++c)
                p->names << QString::fromUtf8(sqlite3_column_name(probe, c));
        }
        const int parameters = sqlite3_bind_parameter_count(probe);
        sqlite3_finalize(probe);
        const QString locating = locatingText(sql);
        if (p->table.isEmpty() || locating.isEmpty()
            || sqlite3_prepare16_v2(db, locating.utf16(), -1, &p->stmt, nullptr) != SQLITE_OK || !p->stmt
            || sqlite3_column_count(p->stmt) != last + 3 || sqlite3_bind_parameter_count(p->stmt) != parameters)
            return nullptr;
        return p;
    }
};

SqliteBlobReader::SqliteBlobReader(const QSqlDatabase &db) : d(std::make_unique<Impl>())
{
    const QVariant handle = db.driver() ? db.driver()->handle() : QVariant();
    if (handle.isValid() && qstrcmp(handle.typeName(), "sqlite3*") == 0)
        d->db = *static_cast<sqlite3 *const *>(handle.constData());
}

SqliteBlobReader::~SqliteBlobReader() = default;

bool SqliteBlobReader::usable() const
{
    return d->db != nullptr;
}

bool SqliteBlobReader::stream(Backend &backend, const QString &key, const std::function<QString()> &adapt,
                              const QList<qint64> &values, StreamedRow *row)
{
    if (!d->db)
        return false;
    auto found = d->plans.find(key);
    if (found == d->plans.end()) {
        if (d->plans.size() >= 32)
            d->plans.clear();
        found = d->plans.emplace(key, d->plan(adapt())).first;
    }
    Plan *p = found->second.get();
    if (!p || sqlite3_bind_parameter_count(p->stmt) > values.size())
        return false;
    sqlite3_reset(p->stmt);
    for (int i = 0; i < values.size(); ++i)
        sqlite3_bind_int64(p->stmt, i + 1, values.at(i));
    const int lead = int(p->names.size());
    const int rc = sqlite3_step(p->stmt);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
        sqlite3_reset(p->stmt);
        return false; // the plain way reports it
    }
    row->fields.setFields(p->names);
    if (rc == SQLITE_DONE) {
        sqlite3_reset(p->stmt);
        return true;
    }
    QVariantList values0;
    for (int c = 0; c < lead; ++c)
        values0.append(columnValue(p->stmt, c));
    const sqlite3_int64 rowid = sqlite3_column_int64(p->stmt, lead);
    const QByteArray type = reinterpret_cast<const char *>(sqlite3_column_text(p->stmt, lead + 1));
    sqlite3_reset(p->stmt);
    if (type == "null") {
        row->fields.appendRow(std::move(values0));
        return true;
    }
    sqlite3_blob *blob = nullptr;
    if (type != "blob"
        || sqlite3_blob_open(d->db, p->database.constData(), p->table.constData(), p->column.constData(), rowid, 0, &blob)
            != SQLITE_OK) {
        sqlite3_blob_close(blob);
        row->fields = RecordSet();
        return false; // text, or a table without rowids: read whole
    }
    row->fields.appendRow(std::move(values0));
    row->value = std::make_unique<BlobValue>(backend, blob);
    return true;
}

#else

struct SqliteBlobReader::Impl {};
SqliteBlobReader::SqliteBlobReader(const QSqlDatabase &) : d(std::make_unique<Impl>()) {}
SqliteBlobReader::~SqliteBlobReader() = default;
bool SqliteBlobReader::usable() const { return false; }
bool SqliteBlobReader::stream(Backend &, const QString &, const std::function<QString()> &, const QList<qint64> &,
                              StreamedRow *)
{
    return false;
}

#endif

} // namespace repo
