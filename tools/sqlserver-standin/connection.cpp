// The session's connection: TDS packets in and out, and TLS when pre-login agreed on it.

#include "session.h"

#include <QTcpSocket>
#include <QThread>
#include <QtEndian>

#include <cstdio>
#include <cstring>

namespace standin {

namespace {

constexpr int kHeaderSize = 8;
constexpr quint8 kEndOfMessage = 0x01;

} // namespace

Session::Session(qintptr socketDescriptor, const Options &options, quint16 spid)
    : m_options(options), m_spid(spid), m_socket(std::make_unique<QTcpSocket>())
{
    m_socket->setSocketDescriptor(socketDescriptor);
    // Replies go out whole at once; waiting for the client's acknowledgement of the last one
    // would add to every round trip.
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
}

Session::~Session()
{
    m_db.reset();
    m_socket->close();
}

void Session::log(const QString &what) const
{
    if (m_options.log) {
        std::fprintf(stderr, "[spid %d] %s\n", m_spid, qUtf8Printable(what));
        std::fflush(stderr);
    }
}

bool Session::readExact(char *to, qint64 size)
{
    if (!m_tls) {
        while (m_socket->bytesAvailable() < size)
            if (!m_socket->waitForReadyRead(-1))
                return false;
        return m_socket->read(to, size) == size;
    }
    while (m_plain.size() < size) {
        if (m_socket->bytesAvailable() == 0 && !m_socket->waitForReadyRead(-1))
            return false;
        if (!m_tls->decrypt(m_socket->readAll(), m_plain))
            return false;
    }
    memcpy(to, m_plain.constData(), size_t(size));
    m_plain.remove(0, size);
    return true;
}

void Session::send(const char *data, qint64 size)
{
    if (m_tls) {
        const QByteArray records = m_tls->encrypt(data, size);
        m_socket->write(records);
    } else {
        m_socket->write(data, size);
    }
}

bool Session::readMessage(quint8 &type, QByteArray &payload)
{
    payload.clear();
    for (;;) {
        char header[kHeaderSize];
        if (!readExact(header, kHeaderSize))
            return false;
        type = quint8(header[0]);
        const quint8 status = quint8(header[1]);
        const int length = qFromBigEndian<quint16>(header + 2);
        if (length < kHeaderSize)
            return false;
        const int body = length - kHeaderSize;
        const qsizetype at = payload.size();
        payload.resize(at + body);
        if (!readExact(payload.data() + at, body))
            return false;
        if (status & kEndOfMessage)
            return true;
    }
}

bool Session::reply(const QByteArray &tokens, quint8 type)
{
    if (m_options.latencyMs > 0)
        QThread::msleep(m_options.latencyMs);
    const int room = m_packetSize - kHeaderSize;
    const qint64 cut = m_options.cutRepliesOver;
    if (cut > 0 && tokens.size() > cut) {
        log(QStringLiteral("reply of %1 bytes cut after %2; connection dropped").arg(tokens.size()).arg(cut));
        for (qsizetype at = 0; at < cut; at += room) {
            const qsizetype n = qMin<qsizetype>(room, cut - at);
            char header[kHeaderSize] = {char(type), 0, 0, 0, 0, 0, char(1 + at / room), 0};
            qToBigEndian(quint16(n + kHeaderSize), header + 2);
            qToBigEndian(m_spid, header + 4);
            send(header, kHeaderSize);
            send(tokens.constData() + at, n);
        }
        m_socket->waitForBytesWritten(2000);
        m_socket->abort();
        return false;
    }
    qsizetype at = 0;
    quint8 packetId = 1;
    do {
        const qsizetype n = qMin<qsizetype>(room, tokens.size() - at);
        char header[kHeaderSize];
        header[0] = char(type);
        header[1] = char(at + n >= tokens.size() ? kEndOfMessage : 0);
        qToBigEndian(quint16(n + kHeaderSize), header + 2);
        qToBigEndian(m_spid, header + 4);
        header[6] = char(packetId++);
        header[7] = 0;
        send(header, kHeaderSize);
        send(tokens.constData() + at, n);
        at += n;
        while (m_socket->bytesToWrite() > 4 * 1024 * 1024)
            if (!m_socket->waitForBytesWritten(-1))
                return false;
    } while (at < tokens.size());
    while (m_socket->bytesToWrite() > 0)
        if (!m_socket->waitForBytesWritten(-1))
            return false;
    return true;
}

namespace {

enum Encryption : quint8 { kEncryptOff = 0, kEncryptOn = 1, kEncryptNotSupported = 2, kEncryptRequired = 3 };

// The value of one pre-login option ("" when the client sent none).
QByteArray preLoginOption(const QByteArray &payload, quint8 token)
{
    for (qsizetype i = 0; i + 4 < payload.size() && quint8(payload.at(i)) != 0xFF; i += 5) {
        const int offset = qFromBigEndian<quint16>(payload.constData() + i + 1);
        const int length = qFromBigEndian<quint16>(payload.constData() + i + 3);
        if (quint8(payload.at(i)) == token && offset + length <= payload.size())
            return payload.mid(offset, length);
    }
    return {};
}

// VERSION, ENCRYPTION, INSTOPT, THREADID (empty), MARS (off), terminator.
QByteArray preLoginReply(quint8 encryption)
{
    const QByteArray data = QByteArray("\x10\x00\x07\xD0\x00\x00", 6) + char(encryption) + QByteArray("\x00\x00", 2);
    const quint8 tokens[] = {0, 1, 2, 3, 4};
    const quint16 lengths[] = {6, 1, 1, 0, 1};
    TokenWriter out;
    quint16 offset = 5 * 5 + 1;
    for (int i = 0; i < 5; ++i) {
        out.u8(tokens[i]);
        char b[4];
        qToBigEndian(offset, b);
        qToBigEndian(lengths[i], b + 2);
        out.bytes(QByteArray(b, 4));
        offset += lengths[i];
    }
    out.u8(0xFF);
    out.bytes(data);
    return out.data;
}

} // namespace

bool Session::preLogin(const QByteArray &payload, bool &loginOnly)
{
    // A server with a certificate, encryption not forced: the login only for a client that
    // supports encryption (OFF), everything for one that asks for it, nothing for one without.
    const QByteArray asked = preLoginOption(payload, 1);
    const quint8 client = asked.isEmpty() ? quint8(kEncryptNotSupported) : quint8(asked.at(0));
    quint8 answer = kEncryptNotSupported;
    if (m_options.tls && client != kEncryptNotSupported)
        answer = client == kEncryptOff ? kEncryptOff : kEncryptOn;
    log(QStringLiteral("pre-login, encryption %1 answered %2").arg(client).arg(answer));
    if (!reply(preLoginReply(answer)))
        return false;
    loginOnly = answer == kEncryptOff;
    return answer == kEncryptNotSupported || tlsHandshake();
}

// The handshake's records travel in pre-login packets both ways.
bool Session::tlsHandshake()
{
    auto link = std::make_unique<TlsLink>(m_options.tls.get());
    for (;;) {
        quint8 type = 0;
        QByteArray records;
        if (!readMessage(type, records) || type != kPreLogin)
            return false;
        QByteArray answer;
        const TlsLink::Step step = link->handshake(records, answer);
        if (!answer.isEmpty() && !reply(answer, kPreLogin))
            return false;
        if (step == TlsLink::Step::Failed) {
            log(QStringLiteral("TLS handshake failed"));
            return false;
        }
        if (step == TlsLink::Step::Done) {
            m_tls = std::move(link);
            return true;
        }
    }
}
} // namespace standin
