#include "repository/recordset.h"

#include "errors/hunterr.h"

namespace repo {

namespace {
constexpr qint32 adErrObjectClosed = 3704;
const QString kAdoRecordset = QStringLiteral("ADODB.Recordset");
} // namespace

struct RecordSet::Data : QSharedData {
    bool open = false;
    QStringList names;
    QList<QVariantList> rows;
    qsizetype pos = 0;

    // The first of equal names. A statement has a handful of columns: looking along them costs
    // less than building and freeing an index for every record set.
    int column(const QString &field) const
    {
        const QString key = field.trimmed();
        for (int c = 0; c < names.size(); ++c) {
            if (names.at(c).compare(key, Qt::CaseInsensitive) == 0)
                return c;
        }
        // Some drivers hand back "a.rec_id" where SQL Server says "rec_id".
        for (int c = 0; c < names.size(); ++c) {
            const QString &name = names.at(c);
            const qsizetype dot = name.lastIndexOf(u'.');
            if (dot >= 0 && name.mid(dot + 1).compare(key, Qt::CaseInsensitive) == 0)
                return c;
        }
        return -1;
    }
};

RecordSet::RecordSet() : d(new Data) {}
RecordSet::RecordSet(const RecordSet &) = default;
RecordSet &RecordSet::operator=(const RecordSet &) = default;
RecordSet::~RecordSet() = default;

bool RecordSet::isOpen() const
{
    return d->open;
}

void RecordSet::close()
{
    d = QSharedDataPointer<Data>(new Data);
}

int RecordSet::recordCount() const
{
    return d->open ? int(d->rows.size()) : 0;
}

bool RecordSet::eof() const
{
    return !d->open || d->pos >= d->rows.size();
}

void RecordSet::moveFirst()
{
    if (!d->open)
        HuntERR::raise(adErrObjectClosed, QStringLiteral("Operation is not allowed when the object is closed."),
                       kAdoRecordset);
    d->pos = 0;
}

void RecordSet::moveNext()
{
    if (!d->open)
        HuntERR::raise(adErrObjectClosed, QStringLiteral("Operation is not allowed when the object is closed."),
                       kAdoRecordset);
    if (d->pos >= d->rows.size())
        HuntERR::raise(HuntERR::ERR_NO_CURRENT_RECORD,
                       QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                      "Requested operation requires a current record."),
                       kAdoRecordset);
    ++d->pos;
}

QVariant RecordSet::value(const QString &field) const
{
    if (!d->open)
        HuntERR::raise(adErrObjectClosed, QStringLiteral("Operation is not allowed when the object is closed."),
                       kAdoRecordset);
    const int c = d->column(field);
    if (c < 0)
        HuntERR::raise(HuntERR::ERR_ITEM_NOT_FOUND,
                       QStringLiteral("Item cannot be found in the collection corresponding to the requested name "
                                      "or ordinal."),
                       kAdoRecordset);
    if (d->pos < 0 || d->pos >= d->rows.size())
        HuntERR::raise(HuntERR::ERR_NO_CURRENT_RECORD,
                       QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                      "Requested operation requires a current record."),
                       kAdoRecordset);
    return d->rows.at(d->pos).value(c);
}

bool RecordSet::isNull(const QString &field) const
{
    return value(field).isNull();
}

QString RecordSet::text(const QString &field) const
{
    const QVariant v = value(field);
    return v.isNull() ? QString() : v.toString();
}

QStringList RecordSet::fieldNames() const
{
    return d->names;
}

QVariant RecordSet::valueAt(int column) const
{
    if (!d->open || d->pos < 0 || d->pos >= d->rows.size())
        return {};
    return d->rows.at(d->pos).value(column);
}

void RecordSet::setFields(const QStringList &names)
{
    d->open = true;
    d->names = names;
    d->rows.clear();
    d->pos = 0;
}

void RecordSet::appendRow(QVariantList row)
{
    d->rows.append(std::move(row));
}

} // namespace repo
