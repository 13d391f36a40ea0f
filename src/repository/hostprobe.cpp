#include "repository/hostprobe.h"

#include <QtGlobal>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace repo {

#ifdef Q_OS_UNIX

namespace {

// The outcome of one connection attempt to the first address: 0 connected, else errno (ETIMEDOUT
// when nothing answered in time).
int tryConnect(const addrinfo *address, int timeoutMs)
{
    const int fd = ::socket(address->ai_family, address->ai_socktype, address->ai_protocol);
    if (fd < 0)
        return errno;
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    int error = 0;
    if (::connect(fd, address->ai_addr, address->ai_addrlen) != 0) {
        error = errno;
        if (error == EINPROGRESS) {
            pollfd p{fd, POLLOUT, 0};
            const int ready = ::poll(&p, 1, timeoutMs);
            socklen_t size = sizeof error;
            if (ready <= 0)
                error = ETIMEDOUT;
            else if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
                error = errno;
        }
    }
    ::close(fd);
    return error;
}

} // namespace

QString tcpFailureReason(const QString &host, int port, int timeoutMs)
{
    if (host.isEmpty() || port <= 0 || port > 65535)
        return {};
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (::getaddrinfo(host.toUtf8().constData(), QByteArray::number(port).constData(), &hints, &found) != 0 || !found)
        return QStringLiteral("unknown host %1").arg(host);
    const int error = tryConnect(found, timeoutMs);
    ::freeaddrinfo(found);
    const QString where = QStringLiteral("%1:%2").arg(host).arg(port);
    if (error == 0)
        return {};
    if (error == ECONNREFUSED)
        return QStringLiteral("connection refused by %1").arg(where);
    if (error == ETIMEDOUT)
        return QStringLiteral("no answer from %1 (timed out)").arg(where);
    return QStringLiteral("%1: %2").arg(where, QString::fromLocal8Bit(std::strerror(error)).toLower());
}

#else

QString tcpFailureReason(const QString &, int, int)
{
    return {};
}

#endif

} // namespace repo
