#include "HBGPSVolumeImport.h"

#include "HBGPSImport.h"

#include "import/gpsbabel/HBGPSBabelImportOperation.h"
#include "manager/HBErrorPresentation.h"
#include "manager/HBTrackManager.h"
#include "platform/HBFileName.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFileInfo>

#include <cstdio>

HBGPSVolumeImport::HBGPSVolumeImport(QTextStream &out, QTextStream &err)
    : m_out(out)
    , m_err(err)
{
}

int HBGPSVolumeImport::run(const QString &volume)
{
    QStringList paths{volume};
    QHash<QString, QString> fitOfConverted;
    bool unconverted = false;
    // absolute: gpsbabel runs in the folder of the file it writes
    QDirIterator below(QFileInfo(volume).absoluteFilePath(), {QStringLiteral("*.fit")}, QDir::Files,
                       QDirIterator::Subdirectories);
    QStringList fits;
    while (below.hasNext())
        fits.append(below.next());
    fits.sort();
    for (const QString &fit : std::as_const(fits)) {
        const QString gpx = convertedFile(fit);
        unconverted = unconverted || gpx.isEmpty();
        if (!gpx.isEmpty()) {
            paths.append(gpx);
            fitOfConverted.insert(gpx, fit);
        }
    }
    HBGPSImport import(m_out, m_err);
    import.setShownPaths(fitOfConverted);
    return import.run(paths) == 0 && !unconverted ? 0 : 1;
}

// Written beside its place first: a conversion cut short leaves no file
// that a later run would take for a finished one.
QString HBGPSVolumeImport::convertedFile(const QString &fit)
{
    const QString gpx = cachePathFor(fit);
    const QDateTime modified = QFileInfo(fit).lastModified();
    if (QFileInfo(gpx).lastModified() == modified)
        return gpx;
    QDir().mkpath(QFileInfo(gpx).path());
    const QString part = gpx + QStringLiteral(".part");
    HBGPSBabelImportOperation conversion;
    conversion.setFileDestinationPath(part);
    conversion.setGpsbabelArguments({QStringLiteral("-t"), QStringLiteral("-w"), QStringLiteral("-i"),
                                     QStringLiteral("garmin_fit"), QStringLiteral("-f"), fit, QStringLiteral("-o"),
                                     QStringLiteral("gpx"), QStringLiteral("-F"), part});
    QObject::connect(&conversion, &HBGPSBabelImportOperation::babelOutputTextChanged, [this](const QString &text) {
        m_err.flush();
        HBErrorPresentation::printGPSBabelOutput(text);
    });
    conversion.main();
    QFile written(part);
    if (conversion.errorOccurredDuringDownload() || !written.open(QIODevice::ReadWrite)) {
        m_err << "hbgps: cannot convert " << fit << '\n';
        written.remove();
        return {};
    }
    // the mark of a conversion of this very FIT file
    written.setFileTime(modified, QFileDevice::FileModificationTime);
    written.close();
    if (std::rename(HBFileName::encode(part).constData(), HBFileName::encode(gpx).constData()) != 0) {
        m_err << "hbgps: cannot keep the conversion of " << fit << " as " << gpx << '\n';
        return {};
    }
    return gpx;
}

// One folder per FIT file, so that same-named files of two volumes or
// folders do not meet; the GPX file keeps the FIT file's name.
QString HBGPSVolumeImport::cachePathFor(const QString &fit)
{
    const QFileInfo file(fit);
    const QByteArray key = QCryptographicHash::hash(HBFileName::encode(file.absoluteFilePath()), QCryptographicHash::Sha1);
    return QStringLiteral("%1/FIT/%2/%3.gpx")
        .arg(HBTrackManager::cacheFolder(), QString::fromLatin1(key.toHex().left(16)), file.completeBaseName());
}
