#include "ui/HBGPSBabelImporterPreflightWindow.h"

#include "import/gpsbabel/HBGPSBabelImporterPreflight.h"
#include "ui_GPSBabelImporterPreflightWindow.h"

#include <QDate>
#include <QFileDialog>

HBGPSBabelImporterPreflightWindow::HBGPSBabelImporterPreflightWindow(HBGPSBabelImporterPreflight *preflight)
    : QDialog(qobject_cast<QWidget *>(preflight->targetWindow()))
    , m_ui(std::make_unique<Ui::GPSBabelImporterPreflightWindow>())
    , m_preflight(preflight)
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    showPreflight();
    connectFields();
    connect(preflight, &QObject::destroyed, this, [this] { delete this; });
}

HBGPSBabelImporterPreflightWindow::~HBGPSBabelImporterPreflightWindow() = default;

void HBGPSBabelImporterPreflightWindow::install()
{
    HBGPSBabelImporterPreflight::setWindowLoader(
        [](HBGPSBabelImporterPreflight *preflight) { return new HBGPSBabelImporterPreflightWindow(preflight); });
}

// Only what the user does goes back to the preflight (activated, edited,
// clicked): the preflight's own changes come here without echo.
void HBGPSBabelImporterPreflightWindow::connectFields()
{
    HBGPSBabelImporterPreflight *preflight = m_preflight;
    using P = HBGPSBabelImporterPreflight;
    for (void (P::*changed)() : {&P::gpsTypesChanged, &P::gpsTypesSelectionIndexChanged, &P::inputSourcesChanged,
                                 &P::inputSourcesSelectionIndexChanged, &P::customInputChanged,
                                 &P::customInputIsSelectedChanged, &P::shouldDownloadTracksChanged,
                                 &P::shouldDownloadWaypointsChanged})
        connect(preflight, changed, this, &HBGPSBabelImporterPreflightWindow::showPreflight);
    connect(m_ui->receiverPopUp, &QComboBox::activated, preflight, &P::setGpsTypesSelectionIndex);
    connect(m_ui->portPopUp, &QComboBox::activated, preflight, &P::setInputSourcesSelectionIndex);
    connect(m_ui->customInputField, &QLineEdit::textEdited, preflight, &P::setCustomInput);
    connect(m_ui->tracksCheckBox, &QCheckBox::clicked, preflight, &P::setShouldDownloadTracks);
    connect(m_ui->waypointsCheckBox, &QCheckBox::clicked, preflight, &P::setShouldDownloadWaypoints);
    connect(m_ui->downloadButton, &QPushButton::clicked, this, &HBGPSBabelImporterPreflightWindow::downloadAction);
    connect(m_ui->cancelButton, &QPushButton::clicked, this, &HBGPSBabelImporterPreflightWindow::cancelAction);
}

void HBGPSBabelImporterPreflightWindow::showPreflight()
{
    showRows(m_ui->receiverPopUp, m_preflight->gpsTypes(), m_preflight->gpsTypesSelectionIndex());
    showRows(m_ui->portPopUp, m_preflight->inputSources(), m_preflight->inputSourcesSelectionIndex());
    // setText would move the cursor of a field being typed in
    if (m_ui->customInputField->text() != m_preflight->customInput())
        m_ui->customInputField->setText(m_preflight->customInput());
    m_ui->customInputField->setEnabled(m_preflight->customInputIsSelected());
    m_ui->tracksCheckBox->setChecked(m_preflight->shouldDownloadTracks());
    m_ui->waypointsCheckBox->setChecked(m_preflight->shouldDownloadWaypoints());
}

void HBGPSBabelImporterPreflightWindow::showRows(QComboBox *popUp, const QList<QVariantMap> &rows, quint64 selection)
{
    QStringList names;
    for (const QVariantMap &row : rows)
        names.append(row.value(QStringLiteral("name")).toString());
    QStringList shown;
    for (int i = 0; i < popUp->count(); ++i)
        shown.append(popUp->itemText(i));
    if (shown != names) {
        popUp->clear();
        popUp->addItems(names);
    }
    popUp->setCurrentIndex(int(selection));
}

void HBGPSBabelImporterPreflightWindow::downloadAction()
{
    hide();
    auto *panel = new QFileDialog(parentWidget(), tr("Save Downloaded Tracks"));
    panel->setAcceptMode(QFileDialog::AcceptSave);
    panel->setNameFilter(tr("GPX files (*.gpx)"));
    panel->setDefaultSuffix(QStringLiteral("gpx"));
    panel->setDirectory(HBGPSBabelImporterPreflight::fileSaveLocation());
    panel->selectFile(HBGPSBabelImporterPreflight::proposedFileNameForDate(QDate::currentDate()));
    panel->setWindowModality(Qt::WindowModal);
    connect(panel, &QFileDialog::finished, m_preflight, [preflight = m_preflight, panel](int result) {
        panel->deleteLater();
        preflight->savePanelDidEnd(result == QDialog::Accepted, panel->selectedFiles().value(0));
    });
    panel->open();
}

void HBGPSBabelImporterPreflightWindow::cancelAction()
{
    hide();
    m_preflight->notifyDelegate(false);
}

void HBGPSBabelImporterPreflightWindow::download() { done(1); }

void HBGPSBabelImporterPreflightWindow::cancel() { done(0); }

// Escape and the window's close button are the Cancel button.
void HBGPSBabelImporterPreflightWindow::reject() { cancelAction(); }
