#include "tdstokens.h"

#include <QtEndian>

namespace standin {

namespace {
enum Token : quint8 { kError = 0xAA, kInfo = 0xAB, kLoginAck = 0xAD, kEnvChange = 0xE3, kDone = 0xFD };
}

QByteArray serverCollation()
{
    return QByteArray("\x09\x04\xD0\x00\x34", 5);
}

QString serverName()
{
    return QStringLiteral("STANDIN");
}

void TokenWriter::u16(quint16 v)
{
    char b[2];
    qToLittleEndian(v, b);
    data.append(b, 2);
}

void TokenWriter::u32(quint32 v)
{
    char b[4];
    qToLittleEndian(v, b);
    data.append(b, 4);
}

void TokenWriter::u64(quint64 v)
{
    char b[8];
    qToLittleEndian(v, b);
    data.append(b, 8);
}

void TokenWriter::bVarchar(const QString &s)
{
    const QString t = s.left(255);
    u8(quint8(t.size()));
    for (QChar c : t)
        u16(c.unicode());
}

void TokenWriter::usVarchar(const QString &s)
{
    const QString t = s.left(65535);
    u16(quint16(t.size()));
    for (QChar c : t)
        u16(c.unicode());
}

void TokenWriter::patchLength(qsizetype at)
{
    qToLittleEndian(quint16(data.size() - at - 2), data.data() + at);
}

void TokenWriter::envChange(quint8 type, const QString &newValue, const QString &oldValue)
{
    u8(kEnvChange);
    const qsizetype at = data.size();
    u16(0);
    u8(type);
    bVarchar(newValue);
    bVarchar(oldValue);
    patchLength(at);
}

void TokenWriter::collationChange()
{
    u8(kEnvChange);
    const qsizetype at = data.size();
    u16(0);
    u8(7);
    const QByteArray collation = serverCollation();
    u8(quint8(collation.size()));
    bytes(collation);
    u8(0);
    patchLength(at);
}

void TokenWriter::loginAck()
{
    u8(kLoginAck);
    const qsizetype at = data.size();
    u16(0);
    u8(1);                          // SQL interface
    // The version agreed, written high byte first: 7.1, 7.2, 7.3B, 7.4.
    static const char *const versions[] = {"\x71\x00\x00\x01", "\x72\x09\x00\x02", "\x73\x0B\x00\x03",
                                           "\x74\x00\x00\x04"};
    bytes(QByteArray(versions[qBound(0x71, int(tds), 0x74) - 0x71], 4));
    bVarchar(QStringLiteral("Microsoft SQL Server"));
    bytes(QByteArray("\x10\x00\x07\xD0", 4)); // 16.0.2000
    patchLength(at);
}

void TokenWriter::message(bool error, qint32 number, quint8 state, quint8 severity, const QString &text, int line)
{
    u8(error ? kError : kInfo);
    const qsizetype at = data.size();
    u16(0);
    u32(quint32(number));
    u8(state);
    u8(severity);
    usVarchar(text);
    bVarchar(serverName());
    bVarchar(QString());
    u32(quint32(line));
    patchLength(at);
}

void TokenWriter::done(quint16 status, quint16 command, quint64 rows)
{
    u8(kDone);
    u16(status);
    u16(command);
    if (tds >= 0x72)
        u64(rows);
    else
        u32(quint32(qMin<quint64>(rows, 0xFFFFFFFF)));
}

} // namespace standin
