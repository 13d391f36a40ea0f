#pragma once
// The main window's inner parts that more than one of its source files needs: the quiet focus
// moves, and the state of a copy running off the event loop (windowcopy.cpp).
//
// Threads: a Copy belongs to the window's thread, except what its comments say the copy's thread
// touches: the stop request, the progress counts, abandoned, ok, and the status text (under
// statusLock).

#include "app/frmsendtofolder.h"
#include "errors/hunterr.h"
#include "export/exporter.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace app {

// Focus moves that the window makes for its own reasons (disabling the control that has the
// focus, for instance) are not a person entering a control: they write no hint and, above all,
// never refresh the database list.
class FrmSendtofolder::QuietFocus {
public:
    explicit QuietFocus(FrmSendtofolder *w) : m_w(w) { ++m_w->m_quietFocus; }
    ~QuietFocus() { --m_w->m_quietFocus; }
    QuietFocus(const QuietFocus &) = delete;
    QuietFocus &operator=(const QuietFocus &) = delete;

private:
    FrmSendtofolder *m_w;
};

// What the walk reports while it writes (on the copy's thread), counted for the window to read
// whenever it likes.
class CopyProgress : public exporting::ExportObserver {
public:
    std::atomic<qint64> documents{0};
    std::atomic<qint64> written{0};
    std::atomic<qint64> inFlight{0};

    void reset();
    void documentWritten(const QString &filePath, qint64 bytes) override;
    void documentBytes(qint64 bytesInFlight) override;
};

struct FrmSendtofolder::Copy {
    std::thread thread;
    bool running = false;    // from the start until its end is reported
    bool closeAfter = false; // the window was closed meanwhile: it closes once the run is over
    bool lent = false;       // the trail and its hooks are the copy's until endCopyThread()
    std::atomic<bool> abandoned{false}; // the window is going away: calls from the copy are skipped
    exporting::StopRequest stop;
    CopyProgress progress;
    bool ok = false;         // the run did not fail as a whole; set by the copy's thread at its end
    QTimer timer;            // the progress bar's text
    QElapsedTimer clock;
    std::deque<std::pair<qint64, qint64>> samples; // (ms, bytes) of the last few seconds: the rate
    QPointer<QWidget> hadFocus;
    // The trail's own hooks, while the copy's stand in for them.
    HuntERR::Shower shower;
    HuntERR::StopPrompt prompt;
    std::function<void()> pointerReset;
    std::mutex statusLock;
    QString status;          // the latest status text from the copy's thread
    bool statusPosted = false;
};

} // namespace app
