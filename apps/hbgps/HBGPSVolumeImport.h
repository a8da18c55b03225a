#pragma once

#include <QHash>
#include <QTextStream>

// The import of a receiver that shows up as a USB drive: its GPX, TCX and
// NMEA files as they are, and its FIT activity files turned into GPX by
// gpsbabel, kept under the cache folder; all in one batch, reported as
// `hbgps import` reports, each FIT file under its own path. A FIT file
// converted before and unchanged since (same modification time) is not
// converted again, and its unchanged GPX file is skipped as usual.
class HBGPSVolumeImport
{
public:
    HBGPSVolumeImport(QTextStream &out, QTextStream &err);
    // The exit status of the import; 1 also when a FIT file could not be
    // converted (gpsbabel's message printed as "GPSBabel error: ...").
    int run(const QString &volume);

private:
    // The GPX file of the FIT file, made when need be; empty when gpsbabel
    // could not make it.
    QString convertedFile(const QString &fit);
    static QString cachePathFor(const QString &fit);

    QTextStream &m_out;
    QTextStream &m_err;
};
