#pragma once

#include <QMetaType>
#include <QString>

// What the import of one file brought in and what went wrong, for whoever
// queued it; the track manager hands it on when the operation finishes.
struct HBImportReport
{
    QString filePath;
    // The file's records reached the store files. False when the import was
    // cancelled or its save failed: nothing of the file was saved then.
    bool saved = false;
    // What the file's import source holds.
    qint64 tracks = 0;
    qint64 points = 0;   // of those tracks
    qint64 waypoints = 0;
    // The first place where the file is not what its kind promises, and
    // what became of the rest ("not valid XML at line 12, column 4:
    // mismatched tag; ..."); null for a file read whole.
    QString problem;
    // Why the save failed; null when it did not.
    QString failure;
};

Q_DECLARE_METATYPE(HBImportReport)
