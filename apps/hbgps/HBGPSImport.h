#pragma once

#include "import/HBImportReport.h"

#include <QHash>
#include <QStringList>
#include <QTextStream>

class HBTrackManager;

// The import command: the files below the given paths go to the track
// manager as one batch, and each gets one line on standard output, "PATH:
// STATUS", telling what came in or why nothing did; then the totals.
// Progress is a bar on standard error when that is a terminal. SIGINT,
// SIGTERM and SIGHUP cancel the files not yet imported.
class HBGPSImport
{
public:
    HBGPSImport(QTextStream &out, QTextStream &err);
    // The exit status: 1 when a file could not be imported (its save
    // failed) or the import was cancelled, else 0.
    int run(const QStringList &paths);

private:
    // Runs the batch to its end; true when it was cancelled.
    bool importBatch(HBTrackManager *manager, const QStringList &files);
    QString statusOf(const QString &file) const;

    QTextStream &m_out;
    QTextStream &m_err;
    QStringList m_unknown;
    QStringList m_unchanged;
    QHash<QString, HBImportReport> m_reports;
};
