#pragma once
// Scope guards for the process-wide switches of the core that tests turn: each puts the switch
// back when the scope ends, so a failing check cannot leave it set for the next test.

#include "errors/hunterr.h"
#include "export/exportdisk.h"
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

// The SQLite driver the embedded server opens its files with; the previous one afterwards.
struct EmbeddedDriverScope {
    explicit EmbeddedDriverScope(const QString &driver) : m_was(repo::embeddedDriver()) { repo::setEmbeddedDriver(driver); }
    ~EmbeddedDriverScope() { repo::setEmbeddedDriver(m_was); }
    EmbeddedDriverScope(const EmbeddedDriverScope &) = delete;
    EmbeddedDriverScope &operator=(const EmbeddedDriverScope &) = delete;

private:
    QString m_was;
};

// The disk layer calls hook before each step (to change the disk under a running export).
struct DiskStepHookScope {
    explicit DiskStepHookScope(exporting::ExportDisk::StepHook hook) { exporting::ExportDisk::setStepHook(std::move(hook)); }
    ~DiskStepHookScope() { exporting::ExportDisk::setStepHook({}); }
    DiskStepHookScope(const DiskStepHookScope &) = delete;
    DiskStepHookScope &operator=(const DiskStepHookScope &) = delete;
};
