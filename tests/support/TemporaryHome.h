#pragma once

#include <QFile>
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
