#pragma once

#include <QFile>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

// Points the XDG data, cache and config folders into the temporary home,
// so that the track manager and the user defaults of a test write there and
// nowhere else. Call before the first use of either.
inline void useTemporaryHome(const QTemporaryDir &home)
{
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(home.filePath(QStringLiteral("cache"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
}

// The same for a program the test starts: the system environment with the
// XDG data, cache and config folders in `home`; the data folder may be put
// elsewhere.
inline QProcessEnvironment temporaryHomeEnvironment(const QString &home, const QString &dataHome = {})
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), dataHome.isEmpty() ? home + QStringLiteral("/data") : dataHome);
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/cache"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    return env;
}
