#include "repository/backend.h"

#include "errors/hunterr.h"

#include <QAtomicInt>
#include <QSqlQuery>
#include <QSqlRecord>

namespace repo {

const QString kProvider = QStringLiteral("Microsoft OLE DB Provider for SQL Server");
const QString kAdoConnection = QStringLiteral("ADODB.Connection");

namespace {

constexpr qint32 adErrProviderNotFound = 3706;

QString newConnectionName()
{
    static QAtomicInt counter;
    return QStringLiteral("parcelwise-connection-%1").arg(counter.fetchAndAddRelaxed(1) + 1);
}

} // namespace

Backend::Backend(QStringList &errors) : m_errors(errors) {}

Backend::~Backend()
{
    endStream();
    // Every handle on the Qt connection is gone by now (the subclasses' statements first).
    if (m_qtName.isEmpty())
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(m_qtName, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(m_qtName);
}

void Backend::fail(qint32 number, const QString &description, const QStringList &messages, bool broken)
{
    m_broken = broken;
    m_errors = messages.isEmpty() ? QStringList{description} : messages;
    HuntERR::raise(number, description, kProvider);
}

QSqlDatabase Backend::addDatabase(const QString &driver)
{
    m_qtName = newConnectionName();
    QSqlDatabase db = QSqlDatabase::addDatabase(driver, m_qtName);
    if (!db.isValid()) {
        m_errors = {QStringLiteral("Provider cannot be found. It may not be properly installed.")};
        HuntERR::raise(adErrProviderNotFound, m_errors.first(), kAdoConnection);
    }
    return db;
}

RecordSet Backend::run(const QString &statement, DriverFailure (*describe)(const QSqlError &, bool))
{
    RecordSet rs;
    DriverFailure failure;
    {
        QSqlQuery q(database());
        // Forward only: the driver keeps one row, so a document's bytes exist once, in the record set.
        q.setForwardOnly(true);
        if (!q.exec(statement) || !readRows(q, rs))
            failure = describe(q.lastError(), false);
        q.finish();
    }
    if (failure.number != 0)
        fail(failure);
    return rs;
}

BackendStream::BackendStream(Backend &backend) : m_backend(&backend)
{
    backend.endStream(); // one statement at a time on a connection
    backend.m_stream = this;
}

BackendStream::~BackendStream()
{
    if (m_backend && m_backend->m_stream == this)
        m_backend->m_stream = nullptr;
}

void BackendStream::raiseEnded() const
{
    HuntERR::raise(HuntERR::ERR_GENERAL,
                   QStringLiteral("The value can no longer be read: its statement was closed before it was read to its end"),
                   kProvider);
}

void Backend::endStream()
{
    endValue();
    endBatch();
}

void Backend::endValue()
{
    if (!m_stream)
        return;
    BackendStream *stream = m_stream;
    m_stream = nullptr;
    stream->end();
    stream->m_backend = nullptr;
}

StreamedRow Backend::executeBatch(const QString &sql, const QStringList &following)
{
    Q_UNUSED(following);
    return executeStreamed(sql);
}

StreamedRow Backend::followingStreamed(const QString &following, int skipped)
{
    Q_UNUSED(skipped);
    endStream();
    return executeStreamed(following);
}

QList<RecordSet> Backend::executeAll(const QStringList &statements)
{
    QList<RecordSet> results;
    for (const QString &sql : statements)
        results.append(execute(sql));
    return results;
}

RecordSet Backend::followingResult(const QString &following)
{
    endStream();
    return execute(following);
}

StreamedRow Backend::executeStreamed(const QString &sql)
{
    const RecordSet rs = execute(sql);
    StreamedRow row;
    row.fields = leadingFields(rs);
    const int last = int(rs.fieldNames().size()) - 1;
    if (!rs.eof() && last >= 0 && !rs.valueAt(last).isNull())
        row.value = std::make_unique<BytesReader>(rs.valueAt(last).toByteArray());
    return row;
}

RecordSet leadingFields(const RecordSet &rs)
{
    RecordSet fields;
    QStringList names = rs.fieldNames();
    if (!names.isEmpty())
        names.removeLast();
    fields.setFields(names);
    if (!rs.eof()) {
        QVariantList row;
        for (int c = 0; c < names.size(); ++c)
            row.append(rs.valueAt(c));
        fields.appendRow(std::move(row));
    }
    return fields;
}

// Every row of an executed statement into the record set; false when the driver failed on the way.
bool readRows(QSqlQuery &q, RecordSet &rs)
{
    if (!q.isSelect())
        return true;
    const QSqlRecord record = q.record();
    QStringList names;
    names.reserve(record.count());
    for (int c = 0; c < record.count(); ++c)
        names << record.fieldName(c);
    rs.setFields(names);
    const int columns = int(names.size());
    while (q.next()) {
        QVariantList row;
        row.reserve(columns);
        for (int c = 0; c < columns; ++c)
            row.append(q.isNull(c) ? QVariant() : q.value(c));
        rs.appendRow(std::move(row));
    }
    return !q.lastError().isValid();
}

} // namespace repo
