#pragma once

#include "import/HBImportReport.h"

#include <QHash>
#include <QStringList>
#include <QTextStream>

#include <functional>

class HBTrackManager;

// The import command: the files below the given paths go to the track
// manager as one batch, and each gets one line on standard output, "PATH:
// STATUS", telling what came in or why nothing did; then the totals. A file
// or folder that cannot be read is reported and not handed over, so that
// nothing is recorded for it and it imports once it can be read. Paths are
// printed as their bytes. Progress is a bar on standard error when that is
// a terminal. SIGINT, SIGTERM and SIGHUP cancel the files not yet imported.
class HBGPSImport
{
public:
    HBGPSImport(QTextStream &out, QTextStream &err);
    // The exit status: 1 when a file or folder could not be read, a file
    // could not be imported (its save failed) or the import was cancelled,
    // else 0.
    int run(const QStringList &paths);
    // Files made for the import (converted ones, say) are reported under
    // the path they were made from.
    void setShownPaths(const QHash<QString, QString> &shownPathByFile) { m_shownPath = shownPathByFile; }

    // The import queue runs to its end from what `start` queues on the
    // manager, with the progress bar and the stop signals; true when it was
    // cancelled.
    bool importBatch(HBTrackManager *manager, const std::function<void()> &start);
    // One line for each of `files`, then the totals; the exit status.
    int report(HBTrackManager *manager, const QStringList &files, const QStringList &importable, bool cancelled);

private:
    QStringList filesBelow(const QStringList &paths);
    void addFolder(const QString &folder, QStringList *found);
    QStringList readableFilesOfValidType(const QStringList &files);
    QString statusOf(const QString &file) const;
    void printLine(const QString &path, const QString &status);

    QTextStream &m_out;
    QTextStream &m_err;
    QStringList m_unknown;
    QHash<QString, QString> m_unreadable;   // the reason by path
    QStringList m_unchanged;
    QHash<QString, HBImportReport> m_reports;
    QHash<QString, QString> m_shownPath;
};
