// Feeds arbitrary bytes, as a log file, to the NMEA importer. Most inputs
// are parsed into a context over a coordinator without stores, where
// points stay in memory; one in kSaveEvery goes through main() into the
// stores of a temporary home, save included. Besides memory faults and
// undefined behaviour, broken promises trap: every point has a date or a
// whole position, every error names a line that was read, and angles keep
// at least three digits after the point.

#include "import/HBNMEAImportOperation.h"
#include "manager/HBTrackManager.h"
#include "model/HBTrackDataModel.h"
#include "model/HBTrackPoint.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QByteArrayView>
#include <QDir>
#include <QFile>
#include <QHashFunctions>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

constexpr size_t kSaveEvery = 32;

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

class FuzzedImport : public HBNMEAImportOperation
{
public:
    using HBFileImportOperation::setManagedObjectContext;
};

struct Fixture
{
    QTemporaryDir home;
    QString logPath;
    HBPersistentStoreCoordinator storeless{HBTrackDataModel::model()};

    Fixture()
    {
        qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
        qputenv("XDG_CACHE_HOME", QFile::encodeName(home.filePath(QStringLiteral("cache"))));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
        logPath = home.filePath(QStringLiteral("fuzzed.nmea"));
        // Points of the storeless context are not routed to a file, which
        // the manager warns about once per point; the importer's own lines
        // would drown the fuzzer's output.
        QLoggingCategory::setFilterRules(QStringLiteral("hb.manager.warning=false\nhb.import.warning=false"));
        HBTrackManager::sharedTrackManager();
    }
};

Fixture &fixture()
{
    // Never destroyed, since store threads may run until the process ends;
    // its folder goes at exit all the same.
    static Fixture *f = new Fixture;
    [[maybe_unused]] static const int removal = std::atexit([] { QDir(f->home.path()).removeRecursively(); });
    return *f;
}

void checkPoints(const HBNMEAImportOperation &operation)
{
    for (const HBTrackPoint *point : operation.trackPoints()) {
        const std::optional<HBDecimal> latitude = point->latitude(), longitude = point->longitude();
        check(point->date().isValid() || (latitude && longitude));
        check(!latitude || latitude->scale() >= 3);
        check(!longitude || longitude->scale() >= 3);
    }
}

void checkErrorLog(const HBNMEAImportOperation &operation)
{
    static const QRegularExpression entry(QStringLiteral("^line ([0-9]+): (.+)$"));
    for (const QString &text : operation.errorLog()) {
        const QRegularExpressionMatch match = entry.match(text);
        check(match.hasMatch());
        const quint64 line = match.captured(1).toULongLong();
        check(line >= 1 && line <= operation.currentLine());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    Fixture &f = fixture();
    const QByteArrayView data(reinterpret_cast<const char *>(bytes), qsizetype(size));
    {
        QFile file(f.logPath);
        check(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        check(file.write(data.data(), data.size()) == data.size());
    }

    FuzzedImport operation;
    operation.setFilePath(f.logPath);
    if (qHash(data) % kSaveEvery == 0) {
        operation.main();
        check(operation.trackPoints().isEmpty());
        checkErrorLog(operation);
        return 0;
    }
    auto context = std::make_unique<HBManagedObjectContext>(HBManagedObjectContext::PrivateQueueConcurrencyType);
    context->setPersistentStoreCoordinator(&f.storeless);
    HBManagedObjectContext *parsing = context.get();
    operation.setManagedObjectContext(std::move(context));
    parsing->performBlockAndWait([&] {
        operation.parseFile();
        checkPoints(operation);
        checkErrorLog(operation);
    });
    return 0;
}
