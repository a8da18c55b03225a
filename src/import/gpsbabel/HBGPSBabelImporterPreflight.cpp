#include "import/gpsbabel/HBGPSBabelImporterPreflight.h"

#include "platform/HBLogging.h"
#include "platform/HBUserDefaults.h"

#include <QDate>
#include <QDir>
#include <QFileInfo>
#include <QSerialPortInfo>

namespace {

const QString kType = QStringLiteral("type");
const QString kName = QStringLiteral("name");
const QString kPath = QStringLiteral("path");
const QString kCustomName = QStringLiteral("Custom");

HBUserDefaults &defaults() { return HBUserDefaults::standardUserDefaults(); }

// Once per process, before the first look at the keys.
void registerDefaults()
{
    static const bool registered = [] {
        defaults().registerDefaults({{defaultGPSBabelImporterFileSaveLocation, QDir::homePath()},
                                     {defaultCustomGPSInput, QStringLiteral("gpsname")},
                                     {defaultGPSSelection, QStringLiteral("garmin")}});
        return true;
    }();
    Q_UNUSED(registered);
}

HBGPSBabelImporterPreflight::WindowLoader &windowLoader()
{
    static HBGPSBabelImporterPreflight::WindowLoader loader;
    return loader;
}

} // namespace

void HBGPSBabelImporterPreflight::setWindowLoader(WindowLoader loader) { windowLoader() = std::move(loader); }

HBGPSBabelImporterPreflight::HBGPSBabelImporterPreflight(QObject *parent)
    : QObject(parent)
{
    m_gpsTypes = defaultGPSList();
    const QString lastSelected = defaults().stringForKey(defaultGPSSelection);
    const QList<QVariantMap> rows = m_gpsTypes;
    // With no row of that type, row 0 stays selected but customInput and the
    // default are left alone.
    for (qsizetype i = 0; i < rows.size(); ++i) {
        if (rows[i].value(kType).toString() == lastSelected) {
            setGpsTypesSelectionIndex(i);
            break;
        }
    }
}

HBGPSBabelImporterPreflight::~HBGPSBabelImporterPreflight() = default;

QList<QVariantMap> HBGPSBabelImporterPreflight::defaultGPSList()
{
    registerDefaults();
    QString custom = defaults().stringForKey(defaultCustomGPSInput);
    if (custom.isEmpty())
        custom = QStringLiteral("gpsname");
    const auto row = [](const QString &type, const QString &name) { return QVariantMap{{kType, type}, {kName, name}}; };
    return {row(QStringLiteral("garmin"), QStringLiteral("Garmin")),
            row(QStringLiteral("m241"), QStringLiteral("Holux")),
            row(QStringLiteral("magellan"), QStringLiteral("Magellan")),
            row(QStringLiteral("mtk"), QStringLiteral("MTK (iBlue 747, Qstarz BT-1000,...)")),
            row(QStringLiteral("navilink"), QStringLiteral("NaviGPS GT-11/BGT-11")),
            row(QStringLiteral("skytraq"),
                QStringLiteral("miniHomer, SJA 3-in-1, Navilock BT-455PDF, Polaris Travel Honey, Pearl Diffusion "
                               "Keymate, Canmore GT-750F, Adapt Mobile Keychain Pro")),
            row(QStringLiteral("wbt"), QStringLiteral("WBT-100/200")),
            row(custom, kCustomName)};
}

QString HBGPSBabelImporterPreflight::proposedFileNameForDate(const QDate &date)
{
    return QStringLiteral("Tracks_%1_%2_%3.gpx")
        .arg(date.year(), 4, 10, QLatin1Char('0'))
        .arg(date.month(), 2, 10, QLatin1Char('0'))
        .arg(date.day(), 2, 10, QLatin1Char('0'));
}

QString HBGPSBabelImporterPreflight::fileSaveLocation()
{
    registerDefaults();
    return defaults().stringForKey(defaultGPSBabelImporterFileSaveLocation);
}

void HBGPSBabelImporterPreflight::setGpsTypesSelectionIndex(quint64 index)
{
    m_gpsTypesSelectionIndex = index;
    const QVariantMap row = m_gpsTypes.value().value(qsizetype(index));
    setCustomInput(row.value(kType).toString());
    defaults().setObject(customInput(), defaultGPSSelection);
    m_customInputIsSelected = row.value(kName).toString() == kCustomName;
}

void HBGPSBabelImporterPreflight::prepareToDownloadWithDelegate(HBGPSBabelImporterDelegate *delegate, QObject *window)
{
    setDelegate(delegate);
    setTargetWindow(window);
    refreshInputSources();
    if (!m_window && windowLoader())
        m_window = windowLoader()(this);
    if (!m_window) {
        qCWarning(hbImport) << "No window to download from a GPS receiver: no desktop host installed one";
        return;
    }
    // The sheet's class is the Widgets library's; open() begins it window-modal.
    QMetaObject::invokeMethod(m_window, "open");
}

void HBGPSBabelImporterPreflight::refreshInputSources()
{
    QList<QVariantMap> rows;
    for (const QSerialPortInfo &port : QSerialPortInfo::availablePorts()) {
        if (!port.systemLocation().isEmpty())
            rows.append({{kPath, port.systemLocation()}, {kName, port.portName()}});
    }
    rows.append({{kPath, QStringLiteral("usb:")}, {kName, QStringLiteral("Garmin USB")}});
    setInputSources(rows);
}

void HBGPSBabelImporterPreflight::savePanelDidEnd(bool accepted, const QString &path)
{
    if (!accepted)
        notifyDelegate(false);
    else if (!path.isEmpty())
        downloadToPath(path);
}

void HBGPSBabelImporterPreflight::downloadToPath(const QString &path)
{
    m_fileDestinationPath = path;
    defaults().setObject(QFileInfo(path).absolutePath(), defaultGPSBabelImporterFileSaveLocation);
    m_gpsbabelArguments = argumentsForDestination(path);
    notifyDelegate(true);
}

QStringList HBGPSBabelImporterPreflight::argumentsForDestination(const QString &path)
{
    QStringList arguments;
    if (shouldDownloadTracks())
        arguments << QStringLiteral("-t");
    if (shouldDownloadWaypoints())
        arguments << QStringLiteral("-w");
    arguments << QStringLiteral("-i");
    if (customInputIsSelected()) {
        defaults().setObject(customInput(), defaultCustomGPSInput);
        // An empty format is left out on purpose: gpsbabel then reads "-f"
        // as the format and says so, which the user gets to see.
        if (!customInput().isEmpty())
            arguments << customInput();
    } else {
        arguments << gpsTypes().value(qsizetype(gpsTypesSelectionIndex())).value(kType).toString();
    }
    arguments << QStringLiteral("-f") << inputSources().value(qsizetype(inputSourcesSelectionIndex())).value(kPath).toString();
    arguments << QStringLiteral("-o") << QStringLiteral("gpx") << QStringLiteral("-F") << path;
    return arguments;
}

void HBGPSBabelImporterPreflight::notifyDelegate(bool success)
{
    if (HBGPSBabelImporterDelegate *listener = delegate())
        listener->gpsBabelImporterDidFinishSuccessfully(this, success);
}
