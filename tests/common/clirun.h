#pragma once
// The built executable (PARCELWISE_EXE) run as a person runs it from a shell: a home folder of
// the test's own, no display, and no password or SQL trace left over from the environment.

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include "testsupport.h"

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

// A command-line test's own folder: the demo server, HOME inside it (with its Documents folder),
// and fresh directories on demand. In initTestCase: QVERIFY2(m_cli.setUp(), qPrintable(m_cli.fx.error));
struct CliFixture {
    DemoFixture fx;
    CliRunner runner;
    int dirs = 0;
    bool setUp();
    QString freshDir(const QString &name);
    CliResult run(const QStringList &args, const QByteArray &input = {}, const QMap<QString, QString> &env = {}) const
    {
        return runner.run(args, input, env);
    }
    QStringList signIn(const QString &command, const QString &database = {}) const
    {
        return demoArgs(command, fx.demo, database);
    }
};
