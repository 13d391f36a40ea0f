#include "errors/hunterr.h"

#include "errors/report.h"

#include <QByteArray>
#include <QtGlobal>

#include <atomic>
#include <new>
#include <thread>
#include <utility>

namespace HuntERR {

namespace {

const QString ReportSource = QStringLiteral("HuntERR.ErrorIn");
const QString NoStopMarker = QStringLiteral("NoStop");
const QString LostErrorText = QStringLiteral("ErrorIn: Error information was lost. ")
    + QStringLiteral("To fix: call ErrPreserve before doing anything in error handler.");

constexpr int AnswerYes = 6;
constexpr int AnswerNo = 7;
constexpr int AnswerCancel = 2;

struct Record {
    ErrInfo error;
    bool preserved = false;
    QString reportText;
    QString cause; // the error's own description, before a report was made of it
};

struct TrailState {
    ErrInfo current;
    Record record;
    QString lastShownMessage;
    QString lastRollbackNote;
    int stepMode = -1; // -1: not decided yet
    Shower shower;
    StopPrompt stopPrompt;
    std::function<void()> pointerReset;
    // The thread that first used the trail, or the one it was handed to; none while handed over.
    std::atomic<std::thread::id> owner{std::this_thread::get_id()};
};

TrailState &storage()
{
    static TrailState s;
    return s;
}

// One trail per process, unguarded: it belongs to one thread at a time. A build that breaks
// that rule stops here at once rather than mixing two threads' errors in one report.
TrailState &state()
{
    TrailState &s = storage();
    if (Q_UNLIKELY(std::this_thread::get_id() != s.owner.load(std::memory_order_acquire)))
        qFatal("HuntERR: the error trail was used off its owning thread");
    return s;
}

bool inUserMessageRange(qint32 number)
{
    return number >= USER_MESSAGE_FIRST && number <= USER_MESSAGE_LAST;
}

bool isShownUserMessage(qint32 number)
{
    return number == USER_MESSAGE_FIRST || number == USER_MESSAGE_FIRST + 1 || number == USER_MESSAGE_FIRST + 2;
}

// Building a report may itself run procedures of the trail (the solution version is one); what
// they do to the trail must not touch the error being reported.
class RecordGuard {
public:
    RecordGuard() : m_current(state().current), m_record(state().record) {}
    ~RecordGuard()
    {
        state().current = m_current;
        state().record = m_record;
    }

private:
    ErrInfo m_current;
    Record m_record;
};

template <class F>
QString guarded(F &&build)
{
    QString text;
    RecordGuard guard;
    try {
        text = build();
    } catch (...) {
        text.clear();
    }
    return text;
}

void applyTransactionStep(qint32 flags, DbObject *connection)
{
    if (!(flags & FlagRollback) || !connection)
        return;
    state().lastRollbackNote = guarded([&] { return transactionNote(connection); });
}

// The error's short text for the stop prompt: a report is named by its first line.
QString shortText(const ErrInfo &error, bool *propagated)
{
    *propagated = error.source == ReportSource;
    if (!*propagated)
        return error.description;
    const qsizetype end = error.description.indexOf(QStringLiteral("\r\n"));
    return end < 0 ? error.description : error.description.left(end);
}

} // namespace

Error::Error(ErrInfo info) : m_info(std::move(info)), m_what(m_info.description.toUtf8()) {}

void raise(qint32 number, const QString &description, const QString &source)
{
    ErrInfo info;
    info.number = number;
    info.description = description;
    info.source = source;
    throw Error(std::move(info));
}

ErrInfo &current() { return state().current; }

void clearCurrent() { state().current = ErrInfo{}; }

void setCurrent(std::exception_ptr caught)
{
    ErrInfo info;
    try {
        if (caught)
            std::rethrow_exception(caught);
    } catch (const Error &e) {
        info = e.info();
    } catch (const std::bad_alloc &) {
        info.number = ERR_OUT_OF_MEMORY;
        info.description = QStringLiteral("Out of memory");
    } catch (const std::exception &e) {
        info.number = ERR_GENERAL;
        info.description = QString::fromLocal8Bit(e.what());
    } catch (...) {
        info.number = ERR_GENERAL;
        info.description = QStringLiteral("Unknown error");
    }
    // An error raised without a source (the tool's own, or one from outside the trail) is the
    // application's: a report's "Source:" line is never blank.
    if (info.source.isEmpty())
        info.source = applicationName();
    state().current = info;
}

void ErrPreserve()
{
    TrailState &s = state();
    if (s.current.number == 0 || s.record.preserved)
        return;
    s.record.error = s.current;
    s.record.preserved = true;
    if (s.current.source != ReportSource)
        s.record.cause = s.current.description;
}

void ErrRestore()
{
    TrailState &s = state();
    if (!s.record.preserved)
        return;
    const ErrInfo &kept = s.record.error;
    ErrInfo restored;
    restored.number = kept.number;
    restored.source = kept.source;
    restored.description = kept.description;
    if (!kept.helpContext.isEmpty())
        restored.helpContext = kept.helpContext;
    restored.helpFile = kept.helpFile;
    s.current = restored;
}

bool ErrMustStop()
{
    ErrPreserve();
    TrailState &s = state();
    if (!stepMode() || !s.record.preserved || s.record.error.helpFile == NoStopMarker)
        return false;

    bool propagated = false;
    QString text = QStringLiteral("Error: ") + shortText(s.record.error, &propagated);
    if (propagated)
        text += QStringLiteral(" (Propagated)");
    text += QStringLiteral("\r\nDo you want to retry the operation in step mode?")
        + QStringLiteral("\r\nClick YES to retry, NO to move to the caller, CANCEL for no more stops");

    int answer = AnswerNo;
    if (s.stopPrompt) {
        try {
            answer = s.stopPrompt(QStringLiteral("Stopped on Error"), text);
        } catch (...) {
            answer = AnswerNo;
        }
    }
    switch (answer) {
    case AnswerYes:
        ErrRestore();
        s.record.preserved = false;
        return true;
    case AnswerCancel:
        s.record.error.helpFile = NoStopMarker;
        ErrRestore();
        return false;
    default:
        ErrRestore();
        return false;
    }
}

void ErrorIn(const QString &methodName, qint32 flags, const NamedValues &params, const NamedValues &env,
             DbObject *dbConnection)
{
    TrailState &s = state();
    if (s.current.number == 0 && !s.record.preserved) {
        ErrInfo lost;
        lost.number = ERRMAP_APP_FIRST;
        lost.source = QStringLiteral("HuntERR");
        lost.description = LostErrorText;
        s.current = lost;
    }
    ErrPreserve();

    ErrInfo &kept = s.record.error;
    if (inUserMessageRange(kept.number)) {
        // A message meant for the person, not a fault: it travels as it is.
        s.record.reportText = kept.description;
        applyTransactionStep(flags, dbConnection);
    } else if (flags & FlagReport) {
        QString report;
        if (kept.source == ReportSource) {
            report = kept.description; // built further in; only this procedure's entry is added
        } else {
            const ErrInfo error = kept;
            report = guarded([&] { return buildReportHead(error, methodName) + adoInfoBlock(dbConnection); });
        }
        const qint32 line = kept.line;
        report += guarded([&] { return callStackEntry(methodName, line, params, env); });
        s.record.reportText = report;
        applyTransactionStep(flags, dbConnection);
        s.record.error.source = ReportSource;
        s.record.error.description = report;
    }

    ErrRestore();
    s.record.preserved = false;

    if (s.current.number == ERR_NOT_PASSED_ON)
        return;
    if (flags & FlagPassOn)
        throw Error(s.current);
}

void ErrHandlerExit()
{
    TrailState &s = state();
    try {
        if (s.pointerReset)
            s.pointerReset();
    } catch (...) {
    }

    const qint32 number = s.current.number;
    const bool show = !inUserMessageRange(number) || isShownUserMessage(number);
    if (show) {
        QString message = s.record.reportText;
        if (message.isEmpty() && s.current.source == ReportSource)
            message = s.current.description;
        s.lastShownMessage = message;
        try {
            if (s.shower)
                s.shower(message);
        } catch (...) {
        }
    }
    s.lastShownMessage.clear();
}

const ErrInfo &preserved() { return state().record.error; }
bool isPreserved() { return state().record.preserved; }

void clearPreserved()
{
    state().record.error = ErrInfo{};
    state().record.preserved = false;
    state().record.cause.clear();
}

QString reportText() { return state().record.reportText; }
QString preservedCause() { return state().record.cause; }
QString lastShownMessage() { return state().lastShownMessage; }
void clearLastShownMessage() { state().lastShownMessage.clear(); }
QString lastRollbackNote() { return state().lastRollbackNote; }

void reset()
{
    TrailState &s = state();
    s.current = ErrInfo{};
    s.record = Record{};
    s.lastShownMessage.clear();
    s.lastRollbackNote.clear();
}

bool stepMode()
{
    TrailState &s = state();
    if (s.stepMode < 0) {
#ifdef PARCELWISE_STEP_MODE
        s.stepMode = 1;
#else
        s.stepMode = qEnvironmentVariableIntValue("PARCELWISE_STEP_MODE") == 1 ? 1 : 0;
#endif
    }
    return s.stepMode == 1;
}

void setStepMode(bool on) { state().stepMode = on ? 1 : 0; }

Shower setShower(Shower shower) { return std::exchange(state().shower, std::move(shower)); }
StopPrompt setStopPrompt(StopPrompt prompt) { return std::exchange(state().stopPrompt, std::move(prompt)); }
std::function<void()> setPointerReset(std::function<void()> reset)
{
    return std::exchange(state().pointerReset, std::move(reset));
}

void handOver()
{
    state().owner.store(std::thread::id(), std::memory_order_release);
}

void takeOver()
{
    TrailState &s = storage();
    std::thread::id none;
    if (!s.owner.compare_exchange_strong(none, std::this_thread::get_id(), std::memory_order_acq_rel)
        && none != std::this_thread::get_id())
        qFatal("HuntERR: the error trail was taken over while another thread owns it");
}

namespace detail {
void enterHandler(std::exception_ptr caught)
{
    setCurrent(caught);
    ErrPreserve();
}
} // namespace detail

} // namespace HuntERR
