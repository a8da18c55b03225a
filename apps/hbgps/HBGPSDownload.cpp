#include "HBGPSDownload.h"

#include "HBGPSImport.h"

#include "import/gpsbabel/HBGPSBabelImportOperation.h"
#include "manager/HBErrorPresentation.h"
#include "manager/HBTrackManager.h"

#include <QStandardPaths>

namespace {

const QString kName = QStringLiteral("name");
const QString kPath = QStringLiteral("path");
const QString kType = QStringLiteral("type");

qsizetype indexOfRow(const QList<QVariantMap> &rows, const QString &key, const QString &value)
{
    for (qsizetype i = 0; i < rows.size(); ++i) {
        if (rows[i].value(key).toString() == value)
            return i;
    }
    return -1;
}

} // namespace

HBGPSDownload::HBGPSDownload(QTextStream &out, QTextStream &err)
    : m_out(out)
    , m_err(err)
{
    m_preflight.refreshInputSources();
}

void HBGPSDownload::list()
{
    m_out << "Receivers (--type TYPE, or --custom FORMAT for Custom):\n";
    printRows(m_preflight.gpsTypes(), kType, m_preflight.gpsTypesSelectionIndex());
    m_out << "Ports (--port PATH):\n";
    printRows(m_preflight.inputSources(), kPath, m_preflight.inputSourcesSelectionIndex());
}

void HBGPSDownload::printRows(const QList<QVariantMap> &rows, const QString &key, quint64 selection)
{
    qsizetype width = 0;
    for (const QVariantMap &row : rows)
        width = std::max(width, row.value(key).toString().size());
    for (qsizetype i = 0; i < rows.size(); ++i) {
        m_out << (quint64(i) == selection ? "* " : "  ") << rows[i].value(key).toString().leftJustified(width) << "  "
              << rows[i].value(kName).toString() << '\n';
    }
}

bool HBGPSDownload::select(const Request &request, QString *error)
{
    if (request.type) {
        const qsizetype row = indexOfRow(m_preflight.gpsTypes(), kType, *request.type);
        if (row < 0) {
            *error = QStringLiteral("unknown receiver type %1 (hbgps download --list shows them)").arg(*request.type);
            return false;
        }
        m_preflight.setGpsTypesSelectionIndex(row);
    }
    if (request.custom) {
        m_preflight.setGpsTypesSelectionIndex(indexOfRow(m_preflight.gpsTypes(), kName, QStringLiteral("Custom")));
        m_preflight.setCustomInput(*request.custom);
    }
    if (request.port) {
        // gpsbabel reads from any path: a port the system does not list, or a file
        QList<QVariantMap> ports = m_preflight.inputSources();
        qsizetype row = indexOfRow(ports, kPath, *request.port);
        if (row < 0) {
            row = ports.size();
            ports.append({{kPath, *request.port}, {kName, *request.port}});
            m_preflight.setInputSources(ports);
        }
        m_preflight.setInputSourcesSelectionIndex(row);
    }
    m_preflight.setShouldDownloadTracks(request.tracks);
    m_preflight.setShouldDownloadWaypoints(request.waypoints);
    return true;
}

int HBGPSDownload::run(const QString &file)
{
    // The manager would go on to import whatever the file holds from before.
    const QString program = HBGPSBabelImportOperation::gpsbabelProgram();
    if (QStandardPaths::findExecutable(program).isEmpty()) {
        m_err << "hbgps: cannot run gpsbabel: no program " << program << '\n';
        return 1;
    }
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    bool babelSpoke = false;
    HBErrorPresentation::setGPSBabelOutputPresenter([&](QObject *, const QString &text) {
        babelSpoke = true;
        m_err.flush();
        HBErrorPresentation::printGPSBabelOutput(text);
    });
    m_preflight.setDelegate(manager);
    HBGPSImport import(m_out, m_err);
    const bool cancelled = import.importBatch(manager, [&] { m_preflight.downloadToPath(file); });
    HBErrorPresentation::setGPSBabelOutputPresenter(nullptr);
    // the manager imported nothing: what gpsbabel said is the whole report
    if (babelSpoke)
        return 1;
    return import.report(manager, {file}, {file}, cancelled);
}
