#include "errors/hunterr.h"

#include <new>

namespace HuntERR {

namespace {
struct TrailState {
    ErrInfo current;
    ErrInfo preserved;
    bool isPreserved = false;
    QString reportText;
    QString lastShownMessage;
    QString lastRollbackNote;
    bool stepMode = false;
    bool stepModeSet = false;
    Shower shower;
    StopPrompt stopPrompt;
    std::function<void()> pointerReset;
};

TrailState &state()
{
    static TrailState s;
    return s;
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
    state().current = info;
}

void ErrPreserve()
{
    if (state().isPreserved)
        return;
    state().preserved = state().current;
    state().isPreserved = true;
}

void ErrRestore()
{
    if (state().isPreserved)
        state().current = state().preserved;
}

bool ErrMustStop() { return false; }

void ErrorIn(const QString &methodName, qint32 flags, const NamedValues &, const NamedValues &, DbObject *)
{
    ErrPreserve();
    ErrInfo info = state().preserved;
    if (state().reportText.isEmpty())
        state().reportText = QStringLiteral("Error Number: %1\r\nDescription: %2\r\nMethod: %3")
                                 .arg(info.number)
                                 .arg(info.description, methodName);
    else
        state().reportText += QStringLiteral("\r\n") + methodName;
    if ((flags & FlagPassOn) && info.number != ERR_NOT_PASSED_ON) {
        clearPreserved();
        ErrInfo out = info;
        out.source = QStringLiteral("HuntERR.ErrorIn");
        throw Error(out);
    }
}

void ErrHandlerExit()
{
    if (state().pointerReset)
        state().pointerReset();
    const QString text = state().reportText.isEmpty() ? state().preserved.description : state().reportText;
    if (state().shower)
        state().shower(text);
    state().lastShownMessage.clear();
    clearPreserved();
    state().reportText.clear();
}

const ErrInfo &preserved() { return state().preserved; }
bool isPreserved() { return state().isPreserved; }
void clearPreserved()
{
    state().preserved = ErrInfo{};
    state().isPreserved = false;
}
QString reportText() { return state().reportText; }
QString lastShownMessage() { return state().lastShownMessage; }
void clearLastShownMessage() { state().lastShownMessage.clear(); }
QString lastRollbackNote() { return state().lastRollbackNote; }

void reset()
{
    TrailState &s = state();
    s.current = ErrInfo{};
    clearPreserved();
    s.reportText.clear();
    s.lastShownMessage.clear();
    s.lastRollbackNote.clear();
}

bool stepMode() { return state().stepMode; }
void setStepMode(bool on) { state().stepMode = on; }

void setShower(Shower shower) { state().shower = std::move(shower); }
void setStopPrompt(StopPrompt prompt) { state().stopPrompt = std::move(prompt); }
void setPointerReset(std::function<void()> reset) { state().pointerReset = std::move(reset); }

namespace detail {
void enterHandler(std::exception_ptr caught)
{
    setCurrent(caught);
    ErrPreserve();
}
} // namespace detail

} // namespace HuntERR
