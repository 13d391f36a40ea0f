#pragma once
// The error trail. Every procedure ends in the same handler shape: preserve the error, ask the
// stop check, then hand it to ErrorIn. The innermost procedure turns the error into a report,
// each caller on the way up adds one call-stack entry, and the event handler that started the
// work shows it. In C++ an error travels as a HuntERR::Error exception; the one-line helpers
// at the bottom of this file run a procedure body under its source name and flags.
//
// Threads: raise() and Error may be used on any thread. Everything else here (the trail's
// state, the handlers, the showers) belongs to one thread at a time: the one that first used the
// trail (the window's, the command line's), or the one it was handed to. Used from another
// thread, the trail stops the process (qFatal). The window hands it to its copy's thread for the
// length of a run (handOver() on the owner, then takeOver() on the thread that takes it; back the
// same way), so the export walk always owns the trail it writes to. A worker's error reaches the
// trail as an exception the owning thread rethrows.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <exception>
#include <functional>
#include <type_traits>

namespace HuntERR {

constexpr qint32 vbObjectError = -2147221504;            // &H80040000
constexpr qint32 ERRMAP_APP_FIRST = vbObjectError + 5198; // &H8004144E
constexpr qint32 ERR_GENERAL = ERRMAP_APP_FIRST;
constexpr qint32 ERR_NOT_PASSED_ON = -2147168242;         // &H8004D00E
constexpr qint32 USER_MESSAGE_FIRST = -2147217307;        // &H80041065
constexpr qint32 USER_MESSAGE_LAST = -2147216307;         // &H8004144D

// Run-time error numbers of the controls and the platform that the procedures meet.
constexpr qint32 ERR_OUT_OF_MEMORY = 7;
constexpr qint32 ERR_PATH_NOT_FOUND = 76;
constexpr qint32 ERR_PATH_FILE_ACCESS = 75;
constexpr qint32 ERR_WRITE_FAILED = 3004;   // the stream could not create the file
constexpr qint32 ERR_NO_CURRENT_RECORD = 3021;
constexpr qint32 ERR_ITEM_NOT_FOUND = 3265; // field name not in the record set
constexpr qint32 ERR_INDEX_OUT_OF_BOUNDS = 35600;
constexpr qint32 ERR_ELEMENT_NOT_FOUND = 35601;
constexpr qint32 ERR_KEY_NOT_UNIQUE = 35602;

enum Flag : qint32 {
    FlagPassOn = 1,
    FlagReport = 2,
    FlagRollback = 16,
    FlagsEventHandler = 42, // report here, do not pass on
    FlagsInner = 51,        // report, roll back, pass on to the caller
};

struct ErrInfo {
    qint32 number = 0;
    QString source;
    QString description;
    QString helpFile;
    QString helpContext; // decimal text; empty when none
    qint32 line = 0;
    qint32 lastDllError = 0;
};

// A raised error.
class Error : public std::exception {
public:
    explicit Error(ErrInfo info);
    const ErrInfo &info() const { return m_info; }
    qint32 number() const { return m_info.number; }
    QString description() const { return m_info.description; }
    const char *what() const noexcept override { return m_what.constData(); }

private:
    ErrInfo m_info;
    QByteArray m_what;
};

[[noreturn]] void raise(qint32 number, const QString &description, const QString &source = {});

// A database object the report can describe and roll back (a connection).
class DbObject {
public:
    virtual ~DbObject() = default;
    virtual QString typeName() const = 0;            // "Connection"
    virtual int state() const = 0;                   // 0 closed, bit 1 open, 2/4/8 connecting/executing/fetching
    virtual QStringList errorDescriptions() const = 0;
    virtual void rollbackTrans() = 0;                // throws Error on failure
};

// Names joined by ",", one value each (a single value counts as a one-element list).
struct NamedValues {
    QString names;
    QVariantList values;
    bool isEmpty() const { return names.isEmpty(); }
};

// The current error (what a handler sees when it is entered).
ErrInfo &current();
void clearCurrent();
// Makes the current error from a caught exception: an Error as it stands, anything else as a
// general error with its own text.
void setCurrent(std::exception_ptr caught);

void ErrPreserve();
void ErrRestore();
bool ErrMustStop();
void ErrorIn(const QString &methodName, qint32 flags, const NamedValues &params = {},
             const NamedValues &env = {}, DbObject *dbConnection = nullptr);
void ErrHandlerExit();

// State of the trail, for the windows and for tests.
const ErrInfo &preserved();
bool isPreserved();
void clearPreserved();
QString reportText();
// The last preserved error's description as it was raised, before the trail made a report of it.
QString preservedCause();
QString lastShownMessage();
void clearLastShownMessage();
QString lastRollbackNote();
void reset(); // forget everything (tests)

// Step mode: a debugging switch, off unless built with PARCELWISE_STEP_MODE or the environment
// variable PARCELWISE_STEP_MODE=1 is set.
bool stepMode();
void setStepMode(bool on);

// How the trail reaches the person: the window shows the error window, the command line prints.
// Each setter returns what it replaces. They are called on the trail's owning thread.
using Shower = std::function<void(const QString &message)>;
Shower setShower(Shower shower);
// Step-mode question; returns 6 (Yes), 7 (No) or 2 (Cancel).
using StopPrompt = std::function<int(const QString &title, const QString &text)>;
StopPrompt setStopPrompt(StopPrompt prompt);
// Pointer reset of the exit step (the hourglass goes back to the arrow).
std::function<void()> setPointerReset(std::function<void()> reset);

// Handing the trail to another thread: the owner lets go (handOver), after which no thread owns
// it until one calls takeOver and becomes the owner. Taking over a trail another thread still
// owns stops the process, as any use off the owning thread does.
void handOver();
void takeOver();

// --- The one-line handlers -------------------------------------------------------------

namespace detail {
void enterHandler(std::exception_ptr caught);

// The error path of the handlers that end a failure where it happens: the failure is preserved,
// caught() runs, step mode may run the body again; otherwise ended() reports it and the error
// ends here. False when the body failed.
template <class F, class Caught, class Ended>
bool guarded(F &&body, Caught &&caught, Ended &&ended)
{
    for (;;) {
        try {
            body();
            return true;
        } catch (...) {
            enterHandler(std::current_exception());
            caught();
            if (ErrMustStop())
                continue;
            ended();
            clearCurrent();
            return false;
        }
    }
}
} // namespace detail

// An inner procedure (flags 51): a failure is reported with this procedure's call-stack entry and
// passed on to the caller as an Error. Only the not-passed-on number comes back, as a default value.
template <class F>
auto inner(const QString &source, F &&body, const NamedValues &params = {}) -> decltype(body())
{
    for (;;) {
        try {
            return body();
        } catch (...) {
            detail::enterHandler(std::current_exception());
            if (ErrMustStop())
                continue;
            ErrorIn(source, FlagsInner, params);
            clearCurrent(); // not passed on: the procedure ends normally, as if nothing failed
            if constexpr (!std::is_void_v<decltype(body())>)
                return decltype(body()){};
            else
                return;
        }
    }
}

// An event handler (flags 42): the failure is reported here and shown. Returns false when the
// body failed. onError runs after the error was preserved, before the report is built (for the
// few handlers that put something right first).
template <class F>
bool handler(const QString &source, F &&body, const std::function<void()> &onError = {})
{
    return detail::guarded(std::forward<F>(body), [&] {
        if (onError)
            onError();
    }, [&] {
        ErrorIn(source, FlagsEventHandler);
        ErrHandlerExit();
    });
}

// A statement of a procedure that goes on after a failure (the export): the failure is recorded
// by the trail (report built, nothing shown, nothing passed on) and false comes back so the
// caller can log the item and resume with its next statement. In step mode it stops first, like
// every handler, and may retry the statement.
template <class F>
bool resume(const QString &source, F &&body)
{
    return detail::guarded(std::forward<F>(body), [] {}, [&] { ErrorIn(source, FlagReport); });
}

} // namespace HuntERR
