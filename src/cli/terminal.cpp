#include "cli/terminal.h"

#include <QtGlobal>

#include <cstdio>
#include <string>

#ifdef Q_OS_WIN
#include <io.h>
#include <windows.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace cli {

bool stderrIsTerminal()
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

int terminalColumns()
{
    int columns = 0;
#ifdef Q_OS_WIN
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info))
        columns = info.srWindow.Right - info.srWindow.Left + 1;
#else
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0)
        columns = size.ws_col;
#endif
    if (columns <= 0) {
        bool ok = false;
        columns = qEnvironmentVariableIntValue("COLUMNS", &ok);
        if (!ok || columns <= 0)
            columns = 80;
    }
    return columns;
}

namespace {

bool g_outputFailed = false;

void write(FILE *stream, const QString &text)
{
#ifdef Q_OS_WIN
    const QByteArray bytes = text.toLocal8Bit();
#else
    const QByteArray bytes = text.toUtf8();
#endif
    const size_t written = std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    if (written != size_t(bytes.size()) || std::fflush(stream) != 0 || std::ferror(stream))
        g_outputFailed = true;
}

} // namespace

bool outputFailed() { return g_outputFailed; }

bool flushOutput()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout) || std::fflush(stderr) != 0 || std::ferror(stderr))
        g_outputFailed = true;
    return !g_outputFailed;
}

QString printable(const QString &text, bool keepLineEnds)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= 0x20 && u != 0x7f && !(u >= 0x80 && u < 0xa0)) {
            out += c;
            continue;
        }
        switch (u) {
        case '\n':
            out += keepLineEnds ? QStringLiteral("\n") : QStringLiteral("\\n");
            break;
        case '\r':
            out += QStringLiteral("\\r");
            break;
        case '\t':
            out += QStringLiteral("\\t");
            break;
        default:
            out += QStringLiteral("\\x%1").arg(int(u), u > 0xff ? 4 : 2, 16, QLatin1Char('0'));
        }
    }
    return out;
}

void writeOut(const QString &text) { write(stdout, text); }
void writeErr(const QString &text) { write(stderr, text); }

bool readStdinLine(QString *line)
{
    std::string bytes;
    bool any = false;
    for (int c = std::fgetc(stdin); c != EOF; c = std::fgetc(stdin)) {
        any = true;
        if (c == '\n')
            break;
        bytes.push_back(char(c));
    }
    if (!any)
        return false;
    if (!bytes.empty() && bytes.back() == '\r')
        bytes.pop_back();
#ifdef Q_OS_WIN
    *line = QString::fromLocal8Bit(bytes.data(), qsizetype(bytes.size()));
#else
    *line = QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
#endif
    return true;
}

} // namespace cli
