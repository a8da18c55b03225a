#pragma once

#include "platform/HBOperation.h"

#include <QMutex>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <atomic>

// The user-defaults key of the gpsbabel program's path. Unset or empty: the
// path given to the build (HB_GPSBABEL_PROGRAM), else "gpsbabel" on PATH.
inline const QString kHBDefaultGPSBabelProgramPath = QStringLiteral("defaultGPSBabelProgramPath");

// Downloads from a GPS receiver by running gpsbabel, which writes the
// tracks and waypoints to a GPX file; the track manager then imports that
// file like any other.
//
// gpsbabel says nothing when it succeeds, so any text it prints, on either
// channel, is an error message: each chunk read replaces babelOutputText and
// marks the download as failed.
//
// Life cycle:
//   1. configured on the thread that queues it: setFileDestinationPath,
//      setGpsbabelArguments, setTargetWindow (none changes afterwards);
//   2. running on an import-queue thread: main() runs gpsbabel in the
//      destination's folder until it ends or the operation is cancelled;
//   3. finished: errorOccurredDuringDownload tells whether the file may be
//      imported.
// babelOutputText and the error flag are written while main() runs and read
// from other threads, hence the lock and the atomic.
class HBGPSBabelImportOperation : public HBOperation
{
    Q_OBJECT
    Q_PROPERTY(QString babelOutputText READ babelOutputText NOTIFY babelOutputTextChanged)

public:
    HBGPSBabelImportOperation();
    ~HBGPSBabelImportOperation() override;

    // The GPX file gpsbabel writes; gpsbabel runs in its folder.
    QString fileDestinationPath() const { return m_fileDestinationPath; }
    void setFileDestinationPath(const QString &path) { m_fileDestinationPath = path; }
    // gpsbabel's whole command line after the program name.
    QStringList gpsbabelArguments() const { return m_gpsbabelArguments; }
    void setGpsbabelArguments(const QStringList &arguments) { m_gpsbabelArguments = arguments; }

    // The window gpsbabel's messages are shown on; none for a program
    // without windows.
    QObject *targetWindow() const { return m_targetWindow; }
    void setTargetWindow(QObject *window) { m_targetWindow = window; }

    // The last chunk gpsbabel printed, read as ASCII (any other byte shows
    // as U+FFFD); empty after a quiet run.
    QString babelOutputText() const;
    bool errorOccurredDuringDownload() const { return m_errorOccurredDuringDownload; }

    // The program main() runs: the path in the user defaults, else the one
    // given to the build, else "gpsbabel" (looked up on PATH).
    static QString gpsbabelProgram();

    void main() override;

signals:
    // Emitted on the import-queue thread with the new text.
    void babelOutputTextChanged(const QString &text);

private:
    void takeOutput(const QByteArray &chunk);

    QString m_fileDestinationPath;
    QStringList m_gpsbabelArguments;
    QPointer<QObject> m_targetWindow;
    mutable QMutex m_outputMutex;
    QString m_babelOutputText;
    std::atomic<bool> m_errorOccurredDuringDownload = false;
};
