#pragma once
// Why a server could not be reached, in a few words. FreeTDS's ODBC driver words every failed
// TCP connection alike ("Adaptive Server is unavailable or does not exist") and keeps the
// system's reason to itself, so the reason is found again by trying the connection once more.

#include <QString>

namespace repo {

// "connection refused by HOST:PORT", "unknown host HOST", "no answer from HOST:PORT (timed
// out)", the system's own words for other failures; "" when the port takes the connection (the
// server is there: the driver's own text says more) or the platform has no such probe.
QString tcpFailureReason(const QString &host, int port, int timeoutMs = 3000);

} // namespace repo
