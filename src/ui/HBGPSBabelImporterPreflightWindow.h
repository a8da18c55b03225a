#pragma once

#include <QDialog>

#include <memory>

class HBGPSBabelImporterPreflight;
class QComboBox;

namespace Ui {
class GPSBabelImporterPreflightWindow;
}

// The sheet of a device download ("GPSBabelImporterPreflightWindow.ui"),
// window-modal on the preflight's target window and bound to its fields:
// the receiver, the custom format (editable while "Custom" is selected),
// the port, what to download. Download ends the sheet and opens the save
// panel; Cancel, Escape and closing the sheet tell the delegate false.
// The sheet lives as long as its preflight (or its target window).
class HBGPSBabelImporterPreflightWindow : public QDialog
{
    Q_OBJECT

public:
    explicit HBGPSBabelImporterPreflightWindow(HBGPSBabelImporterPreflight *preflight);
    ~HBGPSBabelImporterPreflightWindow() override;

    // Has every preflight load this sheet; call once a QApplication exists.
    static void install();

public slots:
    // The Download button: the save panel, then the download.
    void downloadAction();
    // The Cancel button.
    void cancelAction();
    // For a sheet run modally (exec()): end the run with 1 or 0.
    void download();
    void cancel();
    void reject() override;

private:
    void showPreflight();
    void connectFields();
    static void showRows(QComboBox *popUp, const QList<QVariantMap> &rows, quint64 selection);

    std::unique_ptr<Ui::GPSBabelImporterPreflightWindow> m_ui;
    HBGPSBabelImporterPreflight *m_preflight;
};
