#include "browse/HBSourceListTreeModel.h"
#include "ui/HBTrackSourceDetailView.h"
#include "ui/HBTrackSourceOutlineView.h"
#include "ui/HBTrackSourceSplitView.h"
#include "ui/ImportProgressView.h"
#include "ui/TracksAndWaypointsTableView.h"

#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTest>

// The source list's small views as a person meets them, offscreen: which
// keys ask for a removal, the header that cannot be opened or closed, the
// divider's bounds, and the colours the two painted views put on screen.
class tst_HBTrackSourceViews : public QObject
{
    Q_OBJECT

    // Equal within the rounding of a gradient sampled at pixel centres.
    static bool near(const QColor &a, const QColor &b)
    {
        return qAbs(a.red() - b.red()) <= 2 && qAbs(a.green() - b.green()) <= 2 && qAbs(a.blue() - b.blue()) <= 2;
    }

    // A header row with one child, as the source list's model answers.
    static QStandardItemModel *headerModel(bool showsDisclosureIndicator, QObject *parent)
    {
        auto *model = new QStandardItemModel(parent);
        auto *header = new QStandardItem(QStringLiteral("SMART LISTS"));
        header->setData(true, HBSourceListTreeModel::IsHeaderRole);
        header->setData(showsDisclosureIndicator, HBSourceListTreeModel::ShouldDisplayDisclosureTriangleRole);
        header->appendRow(new QStandardItem(QStringLiteral("Recent Imports")));
        model->appendRow(header);
        return model;
    }

private slots:
    void deleteKeyAsksForRemoval_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<bool>("asks");
        QTest::newRow("Delete") << int(Qt::Key_Delete) << QStringLiteral("\x7f") << int(Qt::NoModifier) << true;
        QTest::newRow("Backspace") << int(Qt::Key_Backspace) << QStringLiteral("\x08") << int(Qt::NoModifier) << false;
        QTest::newRow("Shift+Delete typing nothing") << int(Qt::Key_Delete) << QString() << int(Qt::ShiftModifier) << false;
        QTest::newRow("a letter") << int(Qt::Key_D) << QStringLiteral("d") << int(Qt::NoModifier) << false;
    }

    // Both lists ask with nothing selected: the window decides what to do.
    void deleteKeyAsksForRemoval()
    {
        QFETCH(int, key);
        QFETCH(QString, text);
        QFETCH(int, modifiers);
        QFETCH(bool, asks);
        HBTrackSourceOutlineView outline;
        TracksAndWaypointsTableView table;
        QSignalSpy outlineAsked(&outline, &HBTrackSourceOutlineView::removeSelectedSourceListAction);
        QSignalSpy tableAsked(&table, &TracksAndWaypointsTableView::removeSelectedTracksAndWaypointsAction);
        for (QWidget *view : {static_cast<QWidget *>(&outline), static_cast<QWidget *>(&table)}) {
            QKeyEvent press(QEvent::KeyPress, key, Qt::KeyboardModifiers(modifiers), text);
            QApplication::sendEvent(view, &press);
        }
        QCOMPARE(outlineAsked.size(), asks ? 1 : 0);
        QCOMPARE(tableAsked.size(), asks ? 1 : 0);
    }

    void headerDisclosureIndicator_data()
    {
        QTest::addColumn<bool>("showsIndicator");
        QTest::addColumn<bool>("openAfterClick");
        QTest::addColumn<bool>("openAfterDoubleClick");
        QTest::addColumn<bool>("openAfterLeftKey");
        QTest::newRow("header without indicator") << false << true << true << true;
        QTest::newRow("header with indicator") << true << false << true << false;
    }

    // Clicks where the indicator is drawn, double-clicks on the name, and
    // Left on the open header.
    void headerDisclosureIndicator()
    {
        QFETCH(bool, showsIndicator);
        QFETCH(bool, openAfterClick);
        QFETCH(bool, openAfterDoubleClick);
        QFETCH(bool, openAfterLeftKey);
        HBTrackSourceOutlineView outline;
        outline.setModel(headerModel(showsIndicator, &outline));
        outline.resize(200, 200);
        outline.show();
        QVERIFY(QTest::qWaitForWindowExposed(&outline));
        const QModelIndex header = outline.model()->index(0, 0);
        outline.expand(header);
        const QRect row = outline.visualRect(header);
        const QPoint indicator(row.left() - outline.indentation() / 2, row.center().y());
        QTest::mouseClick(outline.viewport(), Qt::LeftButton, {}, indicator);
        QCOMPARE(outline.isExpanded(header), openAfterClick);
        outline.expand(header);
        QTest::mouseDClick(outline.viewport(), Qt::LeftButton, {}, row.center());
        QTest::mouseDClick(outline.viewport(), Qt::LeftButton, {}, row.center());
        QCOMPARE(outline.isExpanded(header), openAfterDoubleClick);
        outline.expand(header);
        outline.setCurrentIndex(header);
        QTest::keyClick(&outline, Qt::Key_Left);
        QCOMPARE(outline.isExpanded(header), openAfterLeftKey);
        QCOMPARE(outline.selectionModel()->isSelected(header), false);   // a header is never selected
    }

    void leftPaneWidthAfterResize_data()
    {
        QTest::addColumn<int>("leftWidth");
        QTest::addColumn<int>("splitWidth");
        QTest::addColumn<int>("expected");
        QTest::newRow("fits") << 200 << 800 << 200;
        QTest::newRow("too narrow is widened") << 100 << 800 << 150;
        QTest::newRow("leaves the right pane 280") << 600 << 800 << 519;
        QTest::newRow("window too narrow for both") << 300 << 400 << 150;
    }

    void leftPaneWidthAfterResize()
    {
        QFETCH(int, leftWidth);
        QFETCH(int, splitWidth);
        QFETCH(int, expected);
        QCOMPARE(HBTrackSourceSplitView::leftWidthForResize(leftWidth, splitWidth), expected);
    }

    // Growing the window widens the right pane only; the divider is one
    // light grey pixel that can be grabbed two pixels either side.
    void splitViewKeepsLeftPaneAndDrawsDivider()
    {
        HBTrackSourceSplitView split;
        split.addWidget(new QWidget);
        split.addWidget(new QWidget);
        split.setLeftWidth(220);
        split.resize(800, 300);
        split.show();
        QVERIFY(QTest::qWaitForWindowExposed(&split));
        QCOMPARE(split.sizes(), (QList<int>{220, 579}));
        split.resize(1000, 300);
        QTRY_COMPARE(split.sizes(), (QList<int>{220, 779}));
        QCOMPARE(split.handle(1)->geometry().width(), 5);
        const QImage shot = split.grab().toImage();
        QCOMPARE(shot.pixel(220, 150), qRgb(170, 170, 170));   // white 2/3
    }

    // The lightest stop along the bottom, the darkest along the top.
    void detailViewGradient()
    {
        HBTrackSourceDetailView view;
        view.resize(100, 101);
        const QImage shot = view.grab().toImage();
        QVERIFY(near(shot.pixelColor(50, 100), QColor::fromHsvF(220.0f / 360, 0.18f, 0.59f)));
        QVERIFY(near(shot.pixelColor(50, 0), QColor::fromHsvF(217.0f / 360, 0.21f, 0.30f)));
        QVERIFY(!near(shot.pixelColor(50, 50), QColor::fromHsvF(220.0f / 360, 0.18f, 0.59f)));
        const QGradientStops stops = view.gradient().stops();
        QCOMPARE(stops.size(), 3);
        QCOMPARE(stops.at(1).first, 0.9);
        QCOMPARE(stops.at(1).second, QColor::fromHsvF(222.0f / 360, 0.20f, 0.47f));
    }

    // The fill, and only one row of the top line.
    void importProgressViewColours()
    {
        ImportProgressView view;
        view.resize(120, 30);
        const QImage shot = view.grab().toImage();
        QCOMPARE(shot.pixel(60, 0), qRgb(166, 166, 166));   // white 0.65
        QCOMPARE(shot.pixel(60, 1), qRgb(214, 222, 230));   // red 0.84, green 0.87, blue 0.90
        QCOMPARE(shot.pixel(60, 29), qRgb(214, 222, 230));
    }
};

QTEST_MAIN(tst_HBTrackSourceViews)
#include "tst_HBTrackSourceViews.moc"
