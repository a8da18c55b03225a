#pragma once

// What the two XML importer targets share: each input becomes one file of
// the importer's extension in a home of the fuzzer's own, and one import of
// it runs to its end on the calling thread, saving into stores that persist
// from input to input (so that later inputs meet stored waypoints in the
// duplicate check). Besides memory and undefined-behaviour faults, a broken
// promise traps: after the import every record must have been handed over
// to the import source.

#include "import/HBXMLFileImportOperation.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace xmlimportfuzzing {

inline QString &inputPath()
{
    static QString path;
    return path;
}

// The XDG folders of the stores go into a fresh folder under the system's
// temporary folder; the input file lies beside them.
inline void setUp(const char *extension)
{
    QByteArray folder = QDir::tempPath().toLocal8Bit() + "/hbgps-fuzz-XXXXXX";
    if (!mkdtemp(folder.data()))
        std::abort();
    for (const char *variable : {"XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_CONFIG_HOME"})
        qputenv(variable, folder + '/' + variable);
    inputPath() = QString::fromLocal8Bit(folder) + QStringLiteral("/input.") + QLatin1String(extension);
}

template<class Operation> void importInput(const uint8_t *bytes, size_t size)
{
    QFile file(inputPath());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || file.write(reinterpret_cast<const char *>(bytes), qint64(size)) != qint64(size))
        std::abort();
    file.close();
    auto operation = std::make_unique<Operation>();
    operation->setFilePath(inputPath());
    operation->main();
    if (!operation->tracks().isEmpty() || !operation->waypoints().isEmpty() || !operation->routes().isEmpty())
        __builtin_trap();
}

} // namespace xmlimportfuzzing
