#pragma once
// Test support: an export with the options a test gives it.

#include "export/exporter.h"

// An export with the options a test gives it; run() answers as the window reads a run: true
// when anything failed.
struct ExportRun {
    ExportRun(tree::SessionState &state, tree::TreeProcs &procs) : exporter(state, procs) {}
    bool run()
    {
        result = exporter.run(options);
        return result.anythingFailed();
    }
    exporting::Exporter exporter;
    exporting::ExportOptions options;
    exporting::ExportResult result;
};

