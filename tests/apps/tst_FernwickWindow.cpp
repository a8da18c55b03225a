#include "../ui/ImportedLibrary.h"

#include "FernwickWindow.h"
#include "model/HBTrackGeometry.h"
#include "ui/HBMapCanvas.h"
#include "ui/HBTrackPickerController.h"

#include <QImage>
#include <QMenuBar>
#include <QProcess>
#include <QSignalSpy>

// The desktop host as a person meets it: its menus, the window and map view
// coming back after a restart, a click on the map selecting through the
// picker, and the headless screenshot.
class tst_FernwickWindow : public QObject
{
    Q_OBJECT

    ImportedLibrary m_library;

    static QStringList menuTexts(const QMenuBar *bar)
    {
        QStringList texts;
        for (QAction *menu : bar->actions()) {
            texts.append(menu->text());
            for (QAction *action : menu->menu()->actions()) {
                if (!action->isSeparator())
                    texts.append(QStringLiteral("  ") + action->text());
            }
        }
        return texts;
    }

private slots:
    void initTestCase() { m_library.import({QStringLiteral("gpsbabel-segmented_tracks.gpx")}); }

    void menusAPersonExpects()
    {
        const FernwickWindow window;
        QCOMPARE(menuTexts(window.menuBar()),
                 (QStringList{"&File", "  Import\u2026", "  Download from GPS\u2026", "  Export Selection as GPX\u2026",
                              "  Quit", "&View", "  Zoom To Fit", "  Show Track Picker", "&Help",
                              "  About Fernwick"}));
    }

    void windowAndMapViewComeBackAfterARestart()
    {
        const HBMapView view(QPointF(1234567, 5432100), 7.5);
        {
            FernwickWindow window;
            window.resize(900, 640);
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
            window.canvas()->setView(view);
            window.close();
        }
        FernwickWindow again;
        QCOMPARE(again.canvas()->view(), view);
        QCOMPARE(again.size(), QSize(900, 640));
    }

    void clickOnTheMapSelectsThroughThePicker()
    {
        FernwickWindow window;
        QSignalSpy listed(&window, &FernwickWindow::firstListShown);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(listed.wait(30000));
        // "Recent Imports": both tracks of the file
        const QList<HBSpatialObject *> objects = window.picker()->spatialObjects();
        QCOMPARE(window.canvas()->spatialObjects(), objects);
        HBTrack *withTimes = nullptr;
        for (HBSpatialObject *object : objects) {
            auto *track = dynamic_cast<HBTrack *>(object);
            if (track && track->name() == QStringLiteral("With Times"))
                withTimes = track;
        }
        QVERIFY(withTimes);
        window.canvas()->fitSpatialObjects({withTimes});
        const auto points = withTimes->geometry()->geometryWithProjection(HBProjection(HBProjection::WebMercatorSRID));
        const QPointF at = window.canvas()->view().toView(points->points()[20], window.canvas()->size());
        QTest::mouseClick(window.canvas(), Qt::LeftButton, {}, at.toPoint());
        const QList<qsizetype> selected{objects.indexOf(withTimes)};
        QTRY_COMPARE(window.picker()->spatialObjectSelectionIndexes(), selected);
        QCOMPARE(window.canvas()->spatialObjectSelectionIndexes(), selected);
    }

    void screenshotWithoutADisplay_data()
    {
        QTest::addColumn<QString>("size");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QSize>("imageSize");
        QTest::newRow("640x480") << QStringLiteral("640x480") << 0 << QSize(640, 480);
        QTest::newRow("bad size") << QStringLiteral("640") << 2 << QSize(0, 0);
    }

    void screenshotWithoutADisplay()
    {
        QFETCH(QString, size);
        const QString file = m_library.home.filePath(QStringLiteral("shot.png"));
        QFile::remove(file);
        QProcess fernwick;
        QProcessEnvironment env = temporaryHomeEnvironment(m_library.home.path());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        fernwick.setProcessEnvironment(env);
        fernwick.start(QStringLiteral(HB_FERNWICK_PATH),
                       {QStringLiteral("--screenshot"), file, QStringLiteral("--size"), size});
        QVERIFY(fernwick.waitForFinished(60000));
        QTEST(fernwick.exitCode(), "exitCode");
        QTEST(QImage(file).size(), "imageSize");
    }
};

QTEST_MAIN(tst_FernwickWindow)
#include "tst_FernwickWindow.moc"
