// Remote procedure calls. The tool sends plain batches only, but Qt's ODBC driver, on connecting
// to SQL Server, runs "SET QUOTED_IDENTIFIER ON" on a statement with a scrollable cursor, which
// FreeTDS sends as sp_cursoropen. SQL Server runs such a statement directly, says so (16954), and
// hands back the output parameters with no cursor. Nothing else is answered but with an error.

#include "session.h"

#include <QtEndian>

namespace standin {

namespace {

constexpr quint16 kCursorOpen = 2; // sp_cursoropen's procedure id
enum : quint8 { kIntN = 0x26, kNText = 0x63, kNVarChar = 0xE7, kReturnStatus = 0x79, kReturnValue = 0xAC,
                kDoneProc = 0xFE };

struct Parameter {
    bool output = false;
    qint32 number = 0;
    QString text;
};

class Reader {
public:
    explicit Reader(const QByteArray &data) : m_data(data) {}
    bool ok() const { return m_ok; }
    quint32 take(int size)
    {
        if (m_at + size > m_data.size()) {
            m_ok = false;
            return 0;
        }
        quint32 v = 0;
        for (int i = size - 1; i >= 0; --i)
            v = (v << 8) | quint8(m_data.at(m_at + i));
        m_at += size;
        return v;
    }
    QString text(qsizetype bytes)
    {
        if (bytes < 0 || m_at + bytes > m_data.size()) {
            m_ok = false;
            return {};
        }
        const QString s = QString::fromUtf16(reinterpret_cast<const char16_t *>(m_data.constData() + m_at), bytes / 2);
        m_at += bytes;
        return s;
    }
    void skip(qsizetype n)
    {
        if (n < 0 || m_at + n > m_data.size())
            m_ok = false;
        else
            m_at += n;
    }

private:
    const QByteArray &m_data;
    qsizetype m_at = 0;
    bool m_ok = true;
};

// One parameter of the kinds FreeTDS sends to sp_cursoropen: int, ntext, nvarchar.
bool readParameter(Reader &r, Parameter &p)
{
    r.text(qsizetype(r.take(1)) * 2); // name
    p.output = r.take(1) & 0x01;
    const quint8 type = quint8(r.take(1));
    if (type == kIntN) {
        r.take(1);
        const quint32 size = r.take(1);
        p.number = size == 4 ? qint32(r.take(4)) : 0;
    } else if (type == kNText) {
        r.take(4);
        r.skip(5);
        p.text = r.text(qint32(r.take(4)));
    } else if (type == kNVarChar) {
        r.take(2);
        r.skip(5);
        const quint32 size = r.take(2);
        p.text = size == 0xFFFF ? QString() : r.text(size);
    } else {
        return false;
    }
    return r.ok();
}

void returnValue(TokenWriter &out, quint16 ordinal, qint32 value)
{
    out.u8(kReturnValue);
    out.u16(ordinal);
    out.bVarchar(QString());
    out.u8(0x01); // output parameter
    if (out.tds >= 0x72)
        out.u32(0);
    else
        out.u16(0);
    out.u16(0x0001);
    out.u8(kIntN);
    out.u8(4);
    out.u8(4);
    out.u32(quint32(value));
}

} // namespace

void Session::rpc(const QByteArray &payload, TokenWriter &out)
{
    Reader r(payload);
    if (out.tds >= 0x72) {
        const quint32 headers = r.take(4); // ALL_HEADERS, led by its own length
        r.skip(qsizetype(headers) - 4);
    }
    quint16 procedure = 0;
    const quint16 nameLength = quint16(r.take(2));
    if (nameLength == 0xFFFF)
        procedure = quint16(r.take(2));
    else
        r.text(qsizetype(nameLength) * 2);
    r.take(2); // option flags
    QList<Parameter> parameters;
    Parameter p;
    while (r.ok() && parameters.size() < 8 && readParameter(r, p) && r.ok())
        parameters << p;

    if (procedure != kCursorOpen || parameters.size() < 2 || !sessionStatement(parameters.at(1).text, false, nullptr)) {
        log(QStringLiteral("procedure call %1 refused").arg(procedure));
        out.message(true, 2812, 62, 16, QStringLiteral("Could not find stored procedure '%1'.").arg(procedure));
        out.done(kDoneError, 0, 0);
        return;
    }
    log(QStringLiteral("sp_cursoropen: %1").arg(parameters.at(1).text));
    sessionStatement(parameters.at(1).text, false, &out);
    out.message(false, 16954, 1, 10, QStringLiteral("Executing SQL directly; no cursor."));
    out.u8(kReturnStatus);
    out.u32(0);
    for (int i = 0; i < parameters.size(); ++i) {
        if (!parameters.at(i).output)
            continue;
        // The cursor handle: none; the row count: unknown; the options as asked.
        const qint32 value = i == 0 ? 0 : (i == 4 ? -1 : parameters.at(i).number);
        returnValue(out, quint16(i), value);
    }
    out.u8(kDoneProc);
    out.u16(kDoneFinal);
    out.u16(0);
    if (out.tds >= 0x72) // the row count: eight bytes from 7.2, four before
        out.u64(0);
    else
        out.u32(0);
}

} // namespace standin
