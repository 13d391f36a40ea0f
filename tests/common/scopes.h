#pragma once
// Scope guards for the process-wide switches of the core that tests turn: each puts the switch
// back when the scope ends, so a failing check cannot leave it set for the next test.

#include "errors/hunterr.h"
#include "repository/connection.h"

#include <QString>
#include <QStringList>

// The error trail forgotten, and what it would show collected here instead of printed.
struct ErrorTrailScope {
    QStringList shown;
    ErrorTrailScope()
    {
        HuntERR::reset();
        HuntERR::setShower([this](const QString &message) { shown << message; });
    }
    ~ErrorTrailScope()
    {
        HuntERR::setShower({});
        HuntERR::reset();
    }
    ErrorTrailScope(const ErrorTrailScope &) = delete;
    ErrorTrailScope &operator=(const ErrorTrailScope &) = delete;
};

struct StepModeScope {
    explicit StepModeScope(bool on) : m_was(HuntERR::stepMode()) { HuntERR::setStepMode(on); }
    ~StepModeScope() { HuntERR::setStepMode(m_was); }
    StepModeScope(const StepModeScope &) = delete;
    StepModeScope &operator=(const StepModeScope &) = delete;

private:
    bool m_was;
};

// Every statement sent written to path; no trace afterwards.
struct TraceFileScope {
    explicit TraceFileScope(const QString &path) { repo::setTraceFile(path); }
    ~TraceFileScope() { repo::setTraceFile(QString()); }
    TraceFileScope(const TraceFileScope &) = delete;
    TraceFileScope &operator=(const TraceFileScope &) = delete;
};
