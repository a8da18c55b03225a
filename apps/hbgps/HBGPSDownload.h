#pragma once

#include "import/gpsbabel/HBGPSBabelImporterPreflight.h"

#include <QTextStream>

#include <optional>

// The download command: a receiver's tracks and waypoints through gpsbabel
// into a GPX file, which is then imported like any file (the output of
// `hbgps import` for that one file). The choices are the download sheet's,
// made on the same preflight, and the download goes through the manager's
// import queue as the sheet's would.
class HBGPSDownload
{
public:
    struct Request
    {
        std::optional<QString> type;     // a receiver row's type
        std::optional<QString> custom;   // the Custom row with this format
        std::optional<QString> port;     // a listed port's path, or any path gpsbabel reads
        bool tracks = true, waypoints = true;
    };

    HBGPSDownload(QTextStream &out, QTextStream &err);

    // The receivers and ports as the sheet lists them, the preselected
    // ones marked with "*".
    void list();
    // Makes the request's choices; false with the reason for an unknown type.
    bool select(const Request &request, QString *error);
    // Downloads into `file` and imports it. Each message of gpsbabel is
    // printed as "GPSBabel error: ..." and fails the download (status 1);
    // else the status of the import.
    int run(const QString &file);

private:
    void printRows(const QList<QVariantMap> &rows, const QString &key, quint64 selection);

    QTextStream &m_out;
    QTextStream &m_err;
    HBGPSBabelImporterPreflight m_preflight;
};
