#pragma once

#include "TemporaryHome.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// A probe program run as a process of its own, so that each run opens the
// stores afresh as a real program does.
struct ProbeRun
{
    int exitCode = -1;   // -1: crashed or hung
    QStringList out;     // the lines of standard output
    QString err;
};

inline ProbeRun runProbe(const QString &program, const QStringList &arguments, const QProcessEnvironment &environment)
{
    QProcess p;
    p.setProcessEnvironment(environment);
    p.setProgram(program);
    p.setArguments(arguments);
    p.start();
    ProbeRun run;
    // a hanging probe is a failure, not a stuck test
    if (!p.waitForFinished(120000)) {
        p.kill();
        p.waitForFinished();
        return run;
    }
    run.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    run.out = QString::fromUtf8(p.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    run.err = QString::fromUtf8(p.readAllStandardError());
    return run;
}
