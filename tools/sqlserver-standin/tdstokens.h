#pragma once
// The pieces of a SQL Server reply as TDS 7.1 to 7.4 lay them out: little-endian numbers, UTF-16 texts
// with a one- or two-byte length in characters, and the tokens a login and a batch are answered
// with. A reply is built whole in memory and cut into packets only when sent.

#include <QByteArray>
#include <QString>

namespace standin {

// TDS packet types.
enum PacketType : quint8 {
    kSqlBatch = 0x01,
    kRpc = 0x03,
    kReply = 0x04,
    kAttention = 0x06,
    kLogin7 = 0x10,
    kPreLogin = 0x12,
};

// DONE status bits.
enum DoneStatus : quint16 { kDoneFinal = 0x00, kDoneMore = 0x01, kDoneError = 0x02, kDoneCount = 0x10,
                            kDoneAttention = 0x20 };

// SQL_Latin1_General_CP1_CI_AS, the collation of a default installation.
QByteArray serverCollation();

class TokenWriter {
public:
    QByteArray data;
    // The TDS version agreed at login, as its first byte: 0x71 to 0x74. Before 7.2 a DONE counts
    // rows in four bytes, a column's user type takes two, and there is no (n)varchar(max).
    quint8 tds = 0x74;

    void u8(quint8 v) { data.append(char(v)); }
    void u16(quint16 v);
    void u32(quint32 v);
    void u64(quint64 v);
    void bytes(const QByteArray &b) { data.append(b); }
    // Length in characters (one byte), then UTF-16LE.
    void bVarchar(const QString &s);
    // Length in characters (two bytes), then UTF-16LE.
    void usVarchar(const QString &s);

    void envChange(quint8 type, const QString &newValue, const QString &oldValue);
    void collationChange();
    void loginAck();
    // ERROR (error = true) or INFO token.
    void message(bool error, qint32 number, quint8 state, quint8 severity, const QString &text, int line = 1);
    void done(quint16 status, quint16 command, quint64 rows);

private:
    // Writes a token's two-byte length over the placeholder at at.
    void patchLength(qsizetype at);
};

// The name the stand-in answers to in messages, as a server names itself.
QString serverName();

} // namespace standin
