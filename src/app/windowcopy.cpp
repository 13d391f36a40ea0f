// "Start &Copy" off the event loop: the export runs on a thread of its own with the engine's stop
// request, while the window shows how far it has got, takes Cancel and stays responsive.
// frmsendtofolder.h says which thread may do what.

#include "app/foldertreeview.h"
#include "app/frmsendtofolder_p.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QThread>

#include <condition_variable>

#ifdef Q_OS_LINUX
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace app {

using exporting::ExportOptions;
using exporting::ExportResult;

namespace {

const QString kStartSource = QStringLiteral("FrmSendtofolder.cmdStart_Click");
constexpr int kDefaultJobs = 4;
constexpr int kMaxJobs = 64;
constexpr int kProgressMs = 250;
constexpr qint64 kRateWindowMs = 3000;
[[maybe_unused]] constexpr int kCopyNice = 5;

// The total is not known before the walk is over, so the bar is a busy one; its text is the count.
class CopyProgressBar : public QProgressBar {
public:
    using QProgressBar::QProgressBar;
    QString text() const override { return m_text; }
    void setCountText(const QString &text)
    {
        m_text = text;
        update();
    }

private:
    QString m_text;
};

// One call handed to the window's thread, waited for by the copy's.
struct Handshake {
    std::mutex lock;
    std::condition_variable doneChanged;
    bool done = false;
};

QString dataSize(qint64 bytes)
{
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeIecFormat);
}

} // namespace

void CopyProgress::reset()
{
    documents = 0;
    written = 0;
    inFlight = 0;
}

void CopyProgress::documentWritten(const QString &, qint64 bytes)
{
    ++documents;
    written += bytes;
    // The queue takes a retired document's bytes out of its count before it next reports.
    inFlight = qMax<qint64>(0, inFlight - bytes);
}

void CopyProgress::documentBytes(qint64 bytesInFlight)
{
    inFlight = bytesInFlight;
}

int FrmSendtofolder::copyJobs()
{
    bool ok = false;
    const int jobs = QSettings().value(QStringLiteral("export/jobs")).toString().trimmed().toInt(&ok);
    return ok && jobs >= 1 && jobs <= kMaxJobs ? jobs : kDefaultJobs;
}

bool FrmSendtofolder::isCopying() const
{
    return m_copy->running;
}

bool FrmSendtofolder::isWindowThread() const
{
    return QThread::currentThread() == thread();
}

QWidget *FrmSendtofolder::buildCopyRow(QWidget *parent)
{
    m_FrameCopy = new QFrame(parent);
    m_FrameCopy->setObjectName(QStringLiteral("FrameCopy"));
    m_prgCopy = new CopyProgressBar(m_FrameCopy);
    m_prgCopy->setObjectName(QStringLiteral("prgCopy"));
    m_prgCopy->setRange(0, 0);
    m_prgCopy->setTextVisible(true);
    m_prgCopy->setAlignment(Qt::AlignCenter);
    m_cmdCancelCopy = new QPushButton(QStringLiteral("&Cancel"), m_FrameCopy);
    m_cmdCancelCopy->setObjectName(QStringLiteral("cmdCancelCopy"));
    m_cmdCancelCopy->setMinimumWidth(96);
    auto *row = new QHBoxLayout(m_FrameCopy);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_prgCopy, 1);
    row->addWidget(m_cmdCancelCopy);
    m_FrameCopy->hide();
    connect(m_cmdCancelCopy, &QPushButton::clicked, this, [this] { cmdCancelCopy_Click(); });
    m_copy->timer.setInterval(kProgressMs);
    connect(&m_copy->timer, &QTimer::timeout, this, [this] { showCopyProgress(); });
    return m_FrameCopy;
}

// After the question: the controls that would start another run or change what it copies are
// disabled, the progress row shows, and the walk starts on its thread.
void FrmSendtofolder::startCopy()
{
    Copy &c = *m_copy;
    c.hadFocus = focusWidget();
    {
        const QuietFocus quiet(this);
        m_FrameButton->setEnabled(false);
        m_tvDefaultRoot->setEnabled(false);
        m_cmdCancelCopy->setEnabled(true);
        m_FrameCopy->show();
    }
    c.stop.reset();
    c.progress.reset();
    c.samples.clear();
    c.clock.start();
    c.running = true;
    showCopyProgress();
    c.timer.start();
    setCursor(Qt::BusyCursor);

    ExportOptions options;
    options.jobs = copyJobs();
    options.stop = &c.stop;
    options.observer = &c.progress;
    options.logCancellation = true;
    m_runSession.take(m_signIn);
    lendHooks();
    HuntERR::handOver();
    c.lent = true;
    try {
        c.thread = std::thread([this, options] { runCopy(options); });
    } catch (...) {
        c.ok = false;
        copyEnded(); // the trail back first: the handler reports why there is no thread
        throw;
    }
}

// On the copy's thread: it owns the error trail until it ends, and its connection is its own.
void FrmSendtofolder::runCopy(const ExportOptions &options)
{
    yieldToWindow();
    HuntERR::takeOver();
    m_copy->ok = HuntERR::handler(kStartSource, [&] {
        m_runSession.open();
        m_exporter.run(options);
    });
    m_runSession.close();
    HuntERR::handOver();
    QMetaObject::invokeMethod(this, [this] { copyEnded(); }, Qt::QueuedConnection);
}

// The trail's hooks as they are, each reached on the window's thread with the trail lent to it.
void FrmSendtofolder::lendHooks()
{
    Copy &c = *m_copy;
    c.shower = HuntERR::setShower([this](const QString &message) {
        lendTrail([&] {
            if (m_copy->shower)
                m_copy->shower(message);
        });
    });
    c.prompt = HuntERR::setStopPrompt([this](const QString &title, const QString &text) {
        int answer = 7; // No: the window is going away
        lendTrail([&] {
            if (m_copy->prompt)
                answer = m_copy->prompt(title, text);
        });
        return answer;
    });
    c.pointerReset = HuntERR::setPointerReset([this] {
        lendTrail([&] {
            if (m_copy->pointerReset)
                m_copy->pointerReset();
        });
    });
}

void FrmSendtofolder::lendTrail(const std::function<void()> &call)
{
    if (isWindowThread()) {
        call();
        return;
    }
    HuntERR::handOver();
    runOnWindowThread([&] {
        HuntERR::takeOver();
        try {
            call();
        } catch (...) {
        }
        HuntERR::handOver();
    });
    HuntERR::takeOver();
}

void FrmSendtofolder::runOnWindowThread(const std::function<void()> &call) const
{
    auto handshake = std::make_shared<Handshake>();
    QMetaObject::invokeMethod(
        const_cast<FrmSendtofolder *>(this),
        [call, handshake] {
            try {
                call();
            } catch (...) {
            }
            const std::lock_guard<std::mutex> held(handshake->lock);
            handshake->done = true;
            handshake->doneChanged.notify_all();
        },
        Qt::QueuedConnection);
    std::unique_lock<std::mutex> held(handshake->lock);
    while (!handshake->done && !m_copy->abandoned)
        handshake->doneChanged.wait_for(held, std::chrono::milliseconds(20));
}

// Only the latest status text matters: one call is on its way at a time, and it takes the latest.
void FrmSendtofolder::postStatus(const QString &text)
{
    {
        // Never held while posting: the window's thread must not wait for a copy that yields to it.
        const std::lock_guard<std::mutex> held(m_copy->statusLock);
        m_copy->status = text;
        if (std::exchange(m_copy->statusPosted, true))
            return;
    }
    QMetaObject::invokeMethod(
        this,
        [this] {
            QString latest;
            {
                const std::lock_guard<std::mutex> held(m_copy->statusLock);
                latest = m_copy->status;
                m_copy->statusPosted = false;
            }
            setStatus(latest);
        },
        Qt::QueuedConnection);
}

void FrmSendtofolder::showCopyProgress()
{
    Copy &c = *m_copy;
    const qint64 now = c.clock.elapsed();
    const qint64 bytes = c.progress.written + c.progress.inFlight;
    c.samples.emplace_back(now, bytes);
    while (c.samples.size() > 2 && now - c.samples[1].first >= kRateWindowMs)
        c.samples.pop_front();
    const auto &[then, before] = c.samples.front();
    const qint64 rate = now > then ? (bytes - before) * 1000 / (now - then) : 0;
    const qint64 documents = c.progress.documents;
    static_cast<CopyProgressBar *>(m_prgCopy)
        ->setCountText((documents == 1 ? QStringLiteral("%1 document, %2, %3/s") : QStringLiteral("%1 documents, %2, %3/s"))
                           .arg(QLocale().toString(documents), dataSize(bytes), dataSize(rate)));
}

// The copy, and the workers it starts (they inherit it), give way to the window's thread when
// the processors are busy, so a click or a repaint is never queued behind them for long. On an
// idle machine they run as fast as before.
void FrmSendtofolder::yieldToWindow()
{
#ifdef Q_OS_LINUX
    setpriority(PRIO_PROCESS, id_t(gettid()), kCopyNice); // Qt's priorities do nothing under SCHED_OTHER
#else
    QThread::currentThread()->setPriority(QThread::LowPriority);
#endif
}

// Cancel asks the run to stop as an interrupt does: nothing new starts and a document streaming
// is dropped with its temporary file. No error path here: the trail belongs to the copy's thread.
void FrmSendtofolder::cmdCancelCopy_Click()
{
    if (!isCopying())
        return;
    m_copy->stop.request(1);
    m_cmdCancelCopy->setEnabled(false);
}

void FrmSendtofolder::endCopyThread()
{
    Copy &c = *m_copy;
    if (c.thread.joinable())
        c.thread.join();
    if (!std::exchange(c.lent, false))
        return;
    HuntERR::takeOver();
    HuntERR::setShower(std::move(c.shower));
    HuntERR::setStopPrompt(std::move(c.prompt));
    HuntERR::setPointerReset(std::move(c.pointerReset));
    c.timer.stop();
}

void FrmSendtofolder::copyEnded()
{
    Copy &c = *m_copy;
    endCopyThread();
    unsetCursor();
    {
        const QuietFocus quiet(this);
        m_FrameCopy->hide();
        m_tvDefaultRoot->setEnabled(true);
    }
    // A run that failed as a whole was reported by the trail; as before, its buttons stay disabled.
    if (c.ok)
        reportCopyEnd(m_exporter.lastResult());
    c.running = false;
    emit copyFinished();
    if (c.closeAfter)
        close();
}

void FrmSendtofolder::reportCopyEnd(const ExportResult &result)
{
    showUnloggedFailures(result.unloggedLines);
    if (!m_copy->closeAfter) {
        if (result.stopped) {
            setStatus(QStringLiteral(" Copy cancelled"));
            message(exporting::cancellationLine(result.unfinished));
        } else {
            setStatus(QStringLiteral(" Process completed successfully"));
            message(QStringLiteral("Process completed successfully"));
        }
    }
    setStatus(QString());
    const QuietFocus quiet(this);
    m_FrameButton->setEnabled(true);
    QWidget *hadFocus = m_copy->hadFocus;
    if (hadFocus && m_FrameButton->isAncestorOf(hadFocus))
        hadFocus->setFocus(Qt::OtherFocusReason);
}

} // namespace app
