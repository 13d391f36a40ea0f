#pragma once
// The built executable (PARCELWISE_EXE) run as a person runs it from a shell: a home folder of
// the test's own, no display, and no password or SQL trace left over from the environment.

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

struct CliResult {
    int exitCode = -1; // -1: did not start, did not finish or crashed (err says which)
    QString out;
    QString err;
};

struct CliRunner {
    QString home;       // HOME of every run
    QString workingDir; // "" = the test's own
    CliResult run(const QStringList &args, const QByteArray &input = {}, const QMap<QString, QString> &env = {},
                  const QString &stdoutFile = {}) const;
};

// command signed in to the demo server as "demo" (no password), with --database when given.
QStringList demoArgs(const QString &command, const QString &server, const QString &database = {});
