#pragma once

#include "import/gpsbabel/HBGPSBabelImporterDelegate.h"

#include <QObject>
#include <QPointer>
#include <QProperty>
#include <QStringList>
#include <QVariantMap>

#include <functional>

class QDate;

// The user-defaults keys of device downloads; each text is its key.
// The folder the save panel opens in, the folder of the last chosen file.
inline const QString defaultGPSBabelImporterFileSaveLocation = QStringLiteral("defaultGPSBabelImporterFileSaveLocation");
// The gpsbabel format of the "Custom" receiver, the last one downloaded with.
inline const QString defaultCustomGPSInput = QStringLiteral("defaultCustomGPSInput");
// The "type" of the receiver row last selected.
inline const QString defaultGPSSelection = QStringLiteral("defaultGPSSelection");

// What a download from a GPS receiver needs before gpsbabel can run: the
// receiver type, the port it hangs on, what to download and the file to
// write, turned into gpsbabel's command line. The sheet a desktop host
// shows (HBGPSBabelImporterPreflightWindow) binds to these fields; the
// command line sets them itself.
//
// Rows of gpsTypes have the keys "type" (the gpsbabel input format) and
// "name" (the text shown); rows of inputSources "path" (what gpsbabel reads
// after -f) and "name". Every field announces its changes. Main thread only.
//
// Life cycle:
//   1. made: receivers from defaultGPSList(), the one last used selected,
//      both switches on, no ports;
//   2. prepareToDownloadWithDelegate(): ports listed, the sheet shown;
//   3. the user picks and chooses a file: downloadToPath() builds
//      gpsbabelArguments and tells the delegate true; a cancelled sheet or
//      save panel tells it false.
class HBGPSBabelImporterPreflight : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QList<QVariantMap> gpsTypes READ gpsTypes WRITE setGpsTypes NOTIFY gpsTypesChanged)
    Q_PROPERTY(quint64 gpsTypesSelectionIndex READ gpsTypesSelectionIndex WRITE setGpsTypesSelectionIndex
                   NOTIFY gpsTypesSelectionIndexChanged)
    Q_PROPERTY(QList<QVariantMap> inputSources READ inputSources WRITE setInputSources NOTIFY inputSourcesChanged)
    Q_PROPERTY(quint64 inputSourcesSelectionIndex READ inputSourcesSelectionIndex WRITE setInputSourcesSelectionIndex
                   NOTIFY inputSourcesSelectionIndexChanged)
    Q_PROPERTY(QString customInput READ customInput WRITE setCustomInput NOTIFY customInputChanged)
    Q_PROPERTY(bool customInputIsSelected READ customInputIsSelected NOTIFY customInputIsSelectedChanged)
    Q_PROPERTY(bool shouldDownloadTracks READ shouldDownloadTracks WRITE setShouldDownloadTracks
                   NOTIFY shouldDownloadTracksChanged)
    Q_PROPERTY(bool shouldDownloadWaypoints READ shouldDownloadWaypoints WRITE setShouldDownloadWaypoints
                   NOTIFY shouldDownloadWaypointsChanged)
    Q_PROPERTY(QString fileDestinationPath READ fileDestinationPath NOTIFY fileDestinationPathChanged)
    Q_PROPERTY(QStringList gpsbabelArguments READ gpsbabelArguments NOTIFY gpsbabelArgumentsChanged)
    Q_PROPERTY(HBGPSBabelImporterDelegate *delegate READ delegate WRITE setDelegate NOTIFY delegateChanged)
    Q_PROPERTY(QObject *targetWindow READ targetWindow WRITE setTargetWindow NOTIFY targetWindowChanged)

public:
    // Makes the sheet of a preflight; a desktop host installs one
    // (HBGPSBabelImporterPreflightWindow::install). Without one no sheet is
    // shown.
    using WindowLoader = std::function<QObject *(HBGPSBabelImporterPreflight *)>;
    static void setWindowLoader(WindowLoader loader);

    explicit HBGPSBabelImporterPreflight(QObject *parent = nullptr);
    ~HBGPSBabelImporterPreflight() override;

    // The receivers gpsbabel can download from, a new list on each call;
    // the last row, "Custom", has the format of defaultCustomGPSInput.
    static QList<QVariantMap> defaultGPSList();
    // "Tracks_2024_03_07.gpx" for 7 March 2024.
    static QString proposedFileNameForDate(const QDate &date);
    // The folder the save panel opens in.
    static QString fileSaveLocation();

    QList<QVariantMap> gpsTypes() const { return m_gpsTypes; }
    void setGpsTypes(const QList<QVariantMap> &rows) { m_gpsTypes = rows; }
    quint64 gpsTypesSelectionIndex() const { return m_gpsTypesSelectionIndex; }
    // Also takes the row's "type" as customInput, remembers it in
    // defaultGPSSelection and tells whether the row is "Custom".
    void setGpsTypesSelectionIndex(quint64 index);
    QList<QVariantMap> inputSources() const { return m_inputSources; }
    void setInputSources(const QList<QVariantMap> &rows) { m_inputSources = rows; }
    quint64 inputSourcesSelectionIndex() const { return m_inputSourcesSelectionIndex; }
    void setInputSourcesSelectionIndex(quint64 index) { m_inputSourcesSelectionIndex = index; }
    // The gpsbabel format used while "Custom" is selected.
    QString customInput() const { return m_customInput; }
    void setCustomInput(const QString &format) { m_customInput = format; }
    bool customInputIsSelected() const { return m_customInputIsSelected; }
    bool shouldDownloadTracks() const { return m_shouldDownloadTracks; }
    void setShouldDownloadTracks(bool download) { m_shouldDownloadTracks = download; }
    bool shouldDownloadWaypoints() const { return m_shouldDownloadWaypoints; }
    void setShouldDownloadWaypoints(bool download) { m_shouldDownloadWaypoints = download; }
    QString fileDestinationPath() const { return m_fileDestinationPath; }
    // gpsbabel's command line after the program name, once a file is chosen.
    QStringList gpsbabelArguments() const { return m_gpsbabelArguments; }
    HBGPSBabelImporterDelegate *delegate() const { return m_delegate; }
    void setDelegate(HBGPSBabelImporterDelegate *delegate) { m_delegate = delegate; }
    // The window the sheet, the save panel and gpsbabel's messages belong to.
    QObject *targetWindow() const { return m_targetWindow.value(); }
    void setTargetWindow(QObject *window) { m_targetWindow = window; }
    // The sheet, once loaded.
    QObject *window() const { return m_window; }

    // Lists the ports, loads the sheet if need be and shows it.
    void prepareToDownloadWithDelegate(HBGPSBabelImporterDelegate *delegate, QObject *window);
    // The system's serial ports, then "usb:" ("Garmin USB").
    void refreshInputSources();
    // The save panel closed: with a path the download goes there; cancelled
    // tells the delegate false; accepted without a path does nothing.
    void savePanelDidEnd(bool accepted, const QString &path);
    // Sets the destination, remembers its folder, builds gpsbabelArguments
    // and tells the delegate true.
    void downloadToPath(const QString &path);
    void notifyDelegate(bool success);

signals:
    void gpsTypesChanged();
    void gpsTypesSelectionIndexChanged();
    void inputSourcesChanged();
    void inputSourcesSelectionIndexChanged();
    void customInputChanged();
    void customInputIsSelectedChanged();
    void shouldDownloadTracksChanged();
    void shouldDownloadWaypointsChanged();
    void fileDestinationPathChanged();
    void gpsbabelArgumentsChanged();
    void delegateChanged();
    void targetWindowChanged();

private:
    QStringList argumentsForDestination(const QString &path);

    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, QList<QVariantMap>, m_gpsTypes,
                               &HBGPSBabelImporterPreflight::gpsTypesChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, quint64, m_gpsTypesSelectionIndex,
                               &HBGPSBabelImporterPreflight::gpsTypesSelectionIndexChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, QList<QVariantMap>, m_inputSources,
                               &HBGPSBabelImporterPreflight::inputSourcesChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, quint64, m_inputSourcesSelectionIndex,
                               &HBGPSBabelImporterPreflight::inputSourcesSelectionIndexChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, QString, m_customInput,
                               &HBGPSBabelImporterPreflight::customInputChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, bool, m_customInputIsSelected,
                               &HBGPSBabelImporterPreflight::customInputIsSelectedChanged)
    Q_OBJECT_BINDABLE_PROPERTY_WITH_ARGS(HBGPSBabelImporterPreflight, bool, m_shouldDownloadTracks, true,
                                         &HBGPSBabelImporterPreflight::shouldDownloadTracksChanged)
    Q_OBJECT_BINDABLE_PROPERTY_WITH_ARGS(HBGPSBabelImporterPreflight, bool, m_shouldDownloadWaypoints, true,
                                         &HBGPSBabelImporterPreflight::shouldDownloadWaypointsChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, QString, m_fileDestinationPath,
                               &HBGPSBabelImporterPreflight::fileDestinationPathChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, QStringList, m_gpsbabelArguments,
                               &HBGPSBabelImporterPreflight::gpsbabelArgumentsChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, HBGPSBabelImporterDelegate *, m_delegate,
                               &HBGPSBabelImporterPreflight::delegateChanged)
    Q_OBJECT_BINDABLE_PROPERTY(HBGPSBabelImporterPreflight, QPointer<QObject>, m_targetWindow,
                               &HBGPSBabelImporterPreflight::targetWindowChanged)
    QPointer<QObject> m_window;
};
