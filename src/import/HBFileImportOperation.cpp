#include "import/HBFileImportOperation.h"

#include "model/HBImportSource.h"
#include "platform/HBError.h"
#include "platform/HBFileName.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <vector>

namespace {

// A UTF-8 decoder that also tells whether it holds the first bytes of a
// character cut off by the end of its last input. The decoder carries such
// bytes over to the next chunk, so a character split by a chunk boundary
// counts once; left over at the end of the file, they are a truncated,
// invalid character.
class Utf8Decoder : public QStringDecoder
{
public:
    // The byte order mark is decoded as U+FEFF rather than dropped, so that
    // every code point of the file counts.
    Utf8Decoder() : QStringDecoder(Encoding::Utf8, Flag::ConvertInitialBom) {}
    bool hasIncompleteCharacter() const { return state.remainingChars != 0; }
};

} // namespace

HBFileImportOperation::HBFileImportOperation() = default;

HBFileImportOperation::~HBFileImportOperation() = default;

void HBFileImportOperation::setManagedObjectContext(std::unique_ptr<HBManagedObjectContext> context)
{
    m_ownedContext = std::move(context);
    m_context = m_ownedContext.get();
}

void HBFileImportOperation::setSharedManagedObjectContext(HBManagedObjectContext *context)
{
    m_ownedContext.reset();
    m_context = context;
}

bool HBFileImportOperation::hasImportContexts() const
{
    if (m_contexts.newContext && m_contexts.sharedContext)
        return true;
    qCWarning(hbImport).noquote() << "No store to import" << m_filePath << "into: the operation was queued without contexts.";
    return false;
}

void HBFileImportOperation::setFilePath(const QString &path)
{
    m_filePath = path;
    m_numberOfCharacters = numberOfCharactersInFile(path);
}

quint64 HBFileImportOperation::numberOfCharactersInFile(const QString &path)
{
    QFile file;
    if (!HBFileName::openForReading(file, path))
        return 0;
    Utf8Decoder decoder;
    std::vector<char> bytes(kCharacterCountChunkBytes);
    std::vector<QChar> units(decoder.requiredSpace(kCharacterCountChunkBytes));
    quint64 count = 0;
    for (;;) {
        const qint64 read = file.read(bytes.data(), qint64(bytes.size()));
        if (read < 0)
            return 0;
        if (read == 0)
            break;
        const QChar *end = decoder.appendToBuffer(units.data(), QByteArrayView(bytes.data(), read));
        // the rest of an invalid file is not worth reading
        if (decoder.hasError())
            return 0;
        count += quint64(end - units.data());
    }
    return decoder.hasIncompleteCharacter() ? 0 : count;
}

HBImportSource *HBFileImportOperation::insertImportSource(HBManagedObjectContext *context) const
{
    auto *source = context->insertNewObject<HBImportSource>(QStringLiteral("HBImportSource"));
    source->setSourceType(HBImportSource::kHBImportSourceTypeFile);
    source->setFilePath(m_filePath);
    source->setName(QFileInfo(m_filePath).fileName());
    source->setImportDate(m_importDate);
    // a missing file reports size 0 and no date, and gets neither
    const HBFileName::Status file = HBFileName::status(m_filePath);
    if (file.size > 0)
        source->setFileSize(quint64(file.size));
    if (file.modified.isValid())
        source->setFileModificationDate(file.modified);
    return source;
}

HBImportReport HBFileImportOperation::report() const
{
    HBImportReport report = m_report;
    report.filePath = m_filePath;
    return report;
}

void HBFileImportOperation::noteKept(qint64 tracks, qint64 points, qint64 waypoints)
{
    m_report.tracks = tracks;
    m_report.points = points;
    m_report.waypoints = waypoints;
}

void HBFileImportOperation::noteProblem(const QString &problem)
{
    if (m_report.problem.isNull())
        m_report.problem = problem;
}

void HBFileImportOperation::noteSaved()
{
    m_report.saved = true;
}

void HBFileImportOperation::noteSaveFailure(const HBError &error)
{
    const QString causes = error.detailedErrorsDescription();
    m_report.failure = causes.isEmpty() ? error.localizedDescription()
                                        : QStringLiteral("%1 (%2)").arg(error.localizedDescription(), causes);
}
