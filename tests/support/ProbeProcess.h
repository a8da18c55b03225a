#pragma once

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

// The system environment with the XDG data, cache and config folders in
// `home`; the data folder may be put elsewhere.
inline QProcessEnvironment probeEnvironment(const QString &home, const QString &dataHome = {})
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), dataHome.isEmpty() ? home + QStringLiteral("/data") : dataHome);
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/cache"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    return env;
}

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
