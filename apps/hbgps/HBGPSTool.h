#pragma once

#include <QStringList>
#include <QTextStream>

class HBTrackManager;

// The hbgps command line: import files, download from a GPS receiver,
// list, export and delete what was imported, browse it as the source list
// does, and show where the data lives. Exit status 0 for success, 1
// for a failed operation, 2 for bad usage.
class HBGPSTool
{
public:
    HBGPSTool();
    int run(const QStringList &arguments);

    enum ExitCode { Success = 0, Failure = 1, BadUsage = 2 };

private:
    int importFiles(const QStringList &arguments);
    int download(const QStringList &arguments);
    int list(const QStringList &arguments);
    int exportFile(const QStringList &arguments);
    int deleteSource(const QStringList &arguments);
    int info(const QStringList &arguments);
    int tree(const QStringList &arguments);
    int usageError(const QString &message);

    QTextStream m_out;
    QTextStream m_err;
};
