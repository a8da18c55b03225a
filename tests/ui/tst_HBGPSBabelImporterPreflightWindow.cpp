#include "TemporaryHome.h"

#include "import/gpsbabel/HBGPSBabelImporterPreflight.h"
#include "manager/HBTrackManager.h"
#include "platform/HBUserDefaults.h"
#include "ui/HBGPSBabelImporterPreflightWindow.h"
#include "ui/HBTrackManagerAlerts.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSerialPortInfo>
#include <QTemporaryDir>
#include <QTest>

// The download sheet as a person works it, offscreen: what it opens with,
// the gpsbabel command line and user defaults each choice leaves behind,
// the ways out, and gpsbabel's message as an alert on the window.
class tst_HBGPSBabelImporterPreflightWindow : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QWidget m_window;

    struct Delegate : HBGPSBabelImporterDelegate
    {
        QList<bool> told;
        void gpsBabelImporterDidFinishSuccessfully(HBGPSBabelImporterPreflight *, bool success) override { told.append(success); }
    };

    template<class T> T *in(QWidget *sheet, const char *name) { return sheet->findChild<T *>(QLatin1String(name)); }

    static HBUserDefaults &defaults() { return HBUserDefaults::standardUserDefaults(); }

    QWidget *openSheet(HBGPSBabelImporterPreflight &preflight, HBGPSBabelImporterDelegate *delegate)
    {
        preflight.prepareToDownloadWithDelegate(delegate, &m_window);
        auto *sheet = qobject_cast<QWidget *>(preflight.window());
        return sheet && sheet->isVisible() && sheet->parentWidget() == &m_window ? sheet : nullptr;
    }

    // Picks the receiver by typing its name and the format, clicks the
    // switches, picks the first or the last port.
    void choose(QWidget *sheet, const QString &receiver, const QString &format, const QStringList &clicks, bool lastPort)
    {
        QTest::keyClicks(in<QComboBox>(sheet, "receiverPopUp"), receiver);
        if (!format.isNull()) {
            in<QLineEdit>(sheet, "customInputField")->selectAll();
            QTest::keyClick(in<QLineEdit>(sheet, "customInputField"), Qt::Key_Backspace);
            QTest::keyClicks(in<QLineEdit>(sheet, "customInputField"), format);
        }
        for (const QString &box : clicks)
            QTest::mouseClick(in<QCheckBox>(sheet, qPrintable(box)), Qt::LeftButton);
        QTest::keyClick(in<QComboBox>(sheet, "portPopUp"), lastPort ? Qt::Key_End : Qt::Key_Home);
    }

    // Download, then the save panel: the proposed name checked, `path`
    // entered (set rather than typed: the completer's pop-up would take the
    // Return).
    void saveTo(QWidget *sheet, const QString &path)
    {
        QTest::mouseClick(in<QPushButton>(sheet, "downloadButton"), Qt::LeftButton);
        QVERIFY(!sheet->isVisible());
        QFileDialog *panel = m_window.findChild<QFileDialog *>();
        QVERIFY(panel && panel->isVisible());
        QCOMPARE(panel->directory().absolutePath(), m_home.path());
        auto *name = panel->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"));
        QCOMPARE(name->text(), QDate::currentDate().toString(QStringLiteral("'Tracks_'yyyy_MM_dd'.gpx'")));
        name->setText(path);
        QTest::keyClick(name, Qt::Key_Return);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!m_window.findChild<QFileDialog *>());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        HBGPSBabelImporterPreflightWindow::install();
        m_window.show();
    }

    void init()
    {
        defaults().removeObjectForKey(defaultGPSSelection);
        defaults().removeObjectForKey(defaultCustomGPSInput);
        defaults().setObject(m_home.path(), defaultGPSBabelImporterFileSaveLocation);
    }

    void theSheetOpensOnTheLastReceiver_data()
    {
        QTest::addColumn<QString>("lastSelected");   // null: never chosen
        QTest::addColumn<QString>("customFormat");   // null: never used
        QTest::addColumn<int>("receiver");
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("selectionAfter");
        QTest::newRow("first use") << QString() << QString() << 0 << "garmin" << "garmin";
        QTest::newRow("Magellan") << "magellan" << QString() << 2 << "magellan" << "magellan";
        QTest::newRow("Custom, nmea") << "nmea" << "nmea" << 7 << "nmea" << "nmea";
        QTest::newRow("Custom, its format changed since: row 0, untouched") << "gpsname" << "nmea" << 0 << "" << "gpsname";
        QTest::newRow("a format equal to a type: the first row") << "garmin" << "garmin" << 0 << "garmin" << "garmin";
    }

    void theSheetOpensOnTheLastReceiver()
    {
        QFETCH(QString, lastSelected);
        QFETCH(QString, customFormat);
        QFETCH(int, receiver);
        QFETCH(QString, format);
        QFETCH(QString, selectionAfter);
        defaults().setObject(lastSelected.isNull() ? QVariant() : QVariant(lastSelected), defaultGPSSelection);
        defaults().setObject(customFormat.isNull() ? QVariant() : QVariant(customFormat), defaultCustomGPSInput);
        HBGPSBabelImporterPreflight preflight;
        QWidget *sheet = openSheet(preflight, nullptr);
        QVERIFY(sheet);

        const auto *receivers = in<QComboBox>(sheet, "receiverPopUp");
        QCOMPARE(receivers->count(), 8);
        QCOMPARE(receivers->itemText(7), QStringLiteral("Custom"));
        QCOMPARE(receivers->currentIndex(), receiver);
        QCOMPARE(in<QLineEdit>(sheet, "customInputField")->text(), format);
        QCOMPARE(in<QLineEdit>(sheet, "customInputField")->isEnabled(), receiver == 7);
        QCOMPARE(defaults().stringForKey(defaultGPSSelection), selectionAfter);
        QStringList ports;
        for (const QSerialPortInfo &port : QSerialPortInfo::availablePorts())
            ports.append(port.portName());
        const auto *portPopUp = in<QComboBox>(sheet, "portPopUp");
        QCOMPARE(portPopUp->count(), ports.size() + 1);
        QCOMPARE(portPopUp->itemText(ports.size()), QStringLiteral("Garmin USB"));
        QCOMPARE(portPopUp->currentIndex(), 0);
    }

    void downloadBuildsTheCommandLine_data()
    {
        QTest::addColumn<QString>("customDefault");   // null: unset
        QTest::addColumn<QString>("receiver");         // typed into the pop-up
        QTest::addColumn<QString>("format");           // typed into the field; null: left
        QTest::addColumn<QStringList>("clicks");
        QTest::addColumn<bool>("lastPort");
        QTest::addColumn<QString>("arguments");        // PORT: the first port's path
        QTest::addColumn<QString>("customAfter");
        QTest::addColumn<QString>("selectionAfter");
        const QStringList none;
        QTest::newRow("Garmin, first port") << QString() << "Garmin" << QString() << none << false
                                            << "-t -w -i garmin -f PORT -o gpx -F PATH" << "gpsname" << "garmin";
        QTest::newRow("Magellan on Garmin USB, no waypoints")
            << QString() << "Magellan" << QString() << QStringList{"waypointsCheckBox"} << true
            << "-t -i magellan -f usb: -o gpx -F PATH" << "gpsname" << "magellan";
        QTest::newRow("Holux, nothing to download") << QString() << "Holux" << QString()
                                                    << QStringList{"tracksCheckBox", "waypointsCheckBox"} << true
                                                    << "-i m241 -f usb: -o gpx -F PATH" << "gpsname" << "m241";
        QTest::newRow("Custom, nmea typed") << QString() << "Custom" << "nmea" << none << true
                                            << "-t -w -i nmea -f usb: -o gpx -F PATH" << "nmea" << "gpsname";
        QTest::newRow("Custom, nmea remembered") << "nmea" << "Custom" << QString() << none << true
                                                 << "-t -w -i nmea -f usb: -o gpx -F PATH" << "nmea" << "nmea";
        QTest::newRow("Custom, emptied: no format") << QString() << "Custom" << "" << none << true
                                                    << "-t -w -i -f usb: -o gpx -F PATH" << "" << "gpsname";
    }

    void downloadBuildsTheCommandLine()
    {
        QFETCH(QString, customDefault);
        QFETCH(QString, receiver);
        QFETCH(QString, format);
        QFETCH(QStringList, clicks);
        QFETCH(bool, lastPort);
        QFETCH(QString, arguments);
        QFETCH(QString, customAfter);
        QFETCH(QString, selectionAfter);
        defaults().setObject(customDefault.isNull() ? QVariant() : QVariant(customDefault), defaultCustomGPSInput);
        HBGPSBabelImporterPreflight preflight;
        Delegate delegate;
        QWidget *sheet = openSheet(preflight, &delegate);
        QVERIFY(sheet);
        choose(sheet, receiver, format, clicks, lastPort);
        const QString path = m_home.filePath(QStringLiteral("chosen/%1.gpx").arg(QTest::currentDataTag()));
        QDir().mkpath(QFileInfo(path).path());
        saveTo(sheet, path);

        QCOMPARE(delegate.told, QList<bool>{true});
        QCOMPARE(preflight.fileDestinationPath(), path);
        const QString port = preflight.inputSources().value(0).value(QStringLiteral("path")).toString();
        QCOMPARE(preflight.gpsbabelArguments(),
                 arguments.split(u' ').replaceInStrings(QStringLiteral("PORT"), port).replaceInStrings(QStringLiteral("PATH"), path));
        QCOMPARE(defaults().stringForKey(defaultCustomGPSInput), customAfter);
        QCOMPARE(defaults().stringForKey(defaultGPSSelection), selectionAfter);
        QCOMPARE(defaults().stringForKey(defaultGPSBabelImporterFileSaveLocation), QFileInfo(path).path());
    }

    void everyWayOutTellsTheDelegateFalse_data()
    {
        QTest::addColumn<QString>("way");
        QTest::newRow("Cancel") << "Cancel";
        QTest::newRow("Escape") << "Escape";
        QTest::newRow("save panel cancelled") << "panel";
    }

    void everyWayOutTellsTheDelegateFalse()
    {
        QFETCH(QString, way);
        HBGPSBabelImporterPreflight preflight;
        Delegate delegate;
        QWidget *sheet = openSheet(preflight, &delegate);
        QVERIFY(sheet);
        if (way == u"Cancel") {
            QTest::mouseClick(in<QPushButton>(sheet, "cancelButton"), Qt::LeftButton);
        } else if (way == u"Escape") {
            QTest::keyClick(sheet, Qt::Key_Escape);
        } else {
            QTest::mouseClick(in<QPushButton>(sheet, "downloadButton"), Qt::LeftButton);
            QTest::keyClick(m_window.findChild<QFileDialog *>(), Qt::Key_Escape);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        QVERIFY(!sheet->isVisible());
        QCOMPARE(delegate.told, QList<bool>{false});
        QVERIFY(preflight.gpsbabelArguments().isEmpty());
    }

    void aModalRunEndsWithTheButtonsCode_data()
    {
        QTest::addColumn<QByteArray>("slot");
        QTest::addColumn<int>("code");
        QTest::newRow("download") << QByteArray("download") << 1;
        QTest::newRow("cancel") << QByteArray("cancel") << 0;
    }

    void aModalRunEndsWithTheButtonsCode()
    {
        QFETCH(QByteArray, slot);
        QFETCH(int, code);
        HBGPSBabelImporterPreflight preflight;
        Delegate delegate;
        auto *sheet = qobject_cast<QDialog *>(openSheet(preflight, &delegate));
        QVERIFY(sheet);
        sheet->hide();
        QMetaObject::invokeMethod(sheet, slot.constData(), Qt::QueuedConnection);
        QCOMPARE(sheet->exec(), code);
        QVERIFY(delegate.told.isEmpty());
    }

    // Through the shared manager: its sheet on the window, the download
    // queued when the file is chosen, and gpsbabel's word as an alert.
    void gpsbabelsMessageIsAWindowModalAlert()
    {
        HBTrackManagerAlerts::install();
        HBTrackManager *manager = HBTrackManager::sharedTrackManager();
        manager->importWithGPSBabelForWindow(&m_window);
        auto *sheet = qobject_cast<QWidget *>(manager->gpsBabelImporter()->window());
        QVERIFY(sheet && sheet->isVisible());
        choose(sheet, QStringLiteral("Custom"), QStringLiteral("nosuchformat"), {}, true);
        saveTo(sheet, m_home.filePath(QStringLiteral("alerted.gpx")));
        QCOMPARE(manager->trackImportProgressInfo(), QStringLiteral("Downloading from GPS\u2026"));

        QMessageBox *alert = nullptr;
        QTRY_VERIFY((alert = m_window.findChild<QMessageBox *>()));
        QCOMPARE(alert->text(), QStringLiteral("GPSBabel error:"));
        QVERIFY2(alert->informativeText().contains(QStringLiteral("Input type 'nosuchformat' not recognized")),
                 qPrintable(alert->informativeText()));
        QCOMPARE(alert->icon(), QMessageBox::Warning);
        QCOMPARE(alert->windowModality(), Qt::WindowModal);
        QTRY_VERIFY(!manager->trackImportIsInProgress());
    }
};

QTEST_MAIN(tst_HBGPSBabelImporterPreflightWindow)
#include "tst_HBGPSBabelImporterPreflightWindow.moc"
