// File dates: the document's date read from the repository as fixed-format text, parsed at
// fixed positions and given to the written file (through the disk layer, never through a link).

#include "export/exporter.h"

#include "errors/hunterr.h"
#include "export/exportdisk.h"
#include "repository/statements.h"

#include <atomic>
#include <limits>

namespace exporting {

namespace {

// The local offset from UTC now. Asking the time zone means a look at the system's zone file
// every time, which an update reading thousands of dates paid for each of them: it is asked
// again once the second has changed, so it is as current as it was.
int offsetNow()
{
    static std::atomic<qint64> askedIn{std::numeric_limits<qint64>::min()};
    static std::atomic<int> offset{0};
    const qint64 second = QDateTime::currentMSecsSinceEpoch() / 1000;
    if (askedIn.load(std::memory_order_acquire) != second) {
        offset.store(QDateTime::currentDateTime().offsetFromUtc(), std::memory_order_relaxed);
        askedIn.store(second, std::memory_order_release);
    }
    return offset.load(std::memory_order_relaxed);
}

} // namespace

// --- File dates ----------------------------------------------------------------------------

QDateTime fileDateFromRepositoryText(const QString &text)
{
    auto field = [&](qsizetype position, qsizetype length) {
        const QString digits = text.mid(position, length);
        bool ok = digits.size() == length;
        for (QChar c : digits)
            ok = ok && c.isDigit();
        if (!ok)
            HuntERR::raise(13, QStringLiteral("Type mismatch: \"%1\" is not a document date").arg(text));
        return digits.toInt();
    };
    const QDate date(field(0, 4), field(4, 2), field(6, 2));
    const QTime time(field(9, 2), field(11, 2), field(13, 2));
    if (!date.isValid() || !time.isValid())
        HuntERR::raise(5, QStringLiteral("Invalid procedure call or argument: \"%1\" is not a document date").arg(text));
    // Today's offset, not the one in force on the document's date: documents dated across a
    // daylight-saving change land one hour away from their true instant, as they always have.
    return QDateTime(date, time, Qt::UTC).addSecs(-offsetNow());
}

QDateTime documentDate(repo::Connection &cn, qint64 recId)
{
    repo::RecordSet rs = cn.execute(repo::statements::documentDates(QString::number(recId)));
    const QDateTime when = documentDateOf(rs);
    rs.close();
    return when;
}

QDateTime documentDateOf(const repo::RecordSet &rs)
{
    QDateTime when;
    if (rs.recordCount() >= 1 && !rs.eof()) {
        if (!rs.isNull(QStringLiteral("FileActualDate")))
            when = fileDateFromRepositoryText(rs.text(QStringLiteral("FileActualDate")));
        else if (!rs.isNull(QStringLiteral("File_DateUploaded")))
            when = fileDateFromRepositoryText(rs.text(QStringLiteral("File_DateUploaded")));
    }
    return when;
}

} // namespace exporting
