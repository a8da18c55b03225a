#include "kits/atlas/HBPointSymbolizer.h"
#include "kits/atlas/HBRule.h"
#include "kits/atlas/HBStyle.h"

#include <QColor>
#include <QDataStream>
#include <QIODevice>
#include <QTest>

// Style archives across program versions: records that gained values and
// symbolizers this program does not know still load; a format it does not
// know, or damaged data, leaves the style as it was.
class tst_HBStyle : public QObject
{
    Q_OBJECT

    struct Symbolizer
    {
        QString kind;
        QByteArray record;
    };

    // A point symbolizer's record of size 7, with `extra` appended as a
    // later version would.
    static QByteArray pointRecord(quint16 version, const QByteArray &extra = {})
    {
        QByteArray record;
        QDataStream out(&record, QIODevice::WriteOnly);
        out.setVersion(QDataStream::Qt_6_0);
        out << version << qint32(1) << 7.0f << QColor(Qt::red) << QColor(Qt::black) << 2.0f;
        return record + extra;
    }

    static QByteArray archive(quint16 formatVersion, const QList<Symbolizer> &symbolizers)
    {
        QByteArray data;
        QDataStream out(&data, QIODevice::WriteOnly);
        out.setVersion(QDataStream::Qt_6_0);
        out << quint32(0x48425354) << formatVersion << quint32(1) << quint32(symbolizers.size());
        for (const Symbolizer &s : symbolizers)
            out << s.kind << s.record;
        return data;
    }

private slots:
    void archivesOfOtherVersions_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<bool>("loads");
        const Symbolizer point{QStringLiteral("HBPointSymbolizer"), pointRecord(1)};
        QTest::newRow("as written now") << archive(1, {point}) << true;
        QTest::newRow("a later record with a value appended")
            << archive(1, {{point.kind, pointRecord(2, QByteArray("\x00\x00\x00\x05", 4))}}) << true;
        QTest::newRow("a symbolizer of an unknown kind left out")
            << archive(1, {{QStringLiteral("HBLineSymbolizer"), QByteArray("\x01\x02", 2)}, point}) << true;
        QTest::newRow("another format version") << archive(2, {point}) << false;
        QTest::newRow("truncated") << archive(1, {point}).left(30) << false;
        QTest::newRow("not an archive") << QByteArray("hello, world") << false;
    }

    void archivesOfOtherVersions()
    {
        QFETCH(QByteArray, data);
        QFETCH(bool, loads);
        std::shared_ptr<HBStyle> style = HBStyle::styleForGeometry(HBGeometryTypeMultiPoint);
        QDataStream in(data);
        QCOMPARE(style->decodeWithCoder(in), loads);
        QCOMPARE(style->rules().size(), 1);
        const QList<std::shared_ptr<HBSymbolizer>> symbolizers = style->rules().first()->symbolizers();
        QCOMPARE(symbolizers.size(), 1);
        const auto *point = qobject_cast<HBPointSymbolizer *>(symbolizers.first().get());
        QVERIFY(point);
        // loaded: the archive's size 7 and red fill; refused: the defaults
        QCOMPARE(point->symbolSize(), loads ? 7.0f : 3.0f);
        QCOMPARE(point->fillColor(), loads ? QColor(Qt::red) : QColor(0x1a, 0x66, 0xff));
    }

    void writtenStyleReadsBack()
    {
        HBStyle written;
        auto rule = std::make_shared<HBRule>();
        auto symbolizer = std::make_shared<HBPointSymbolizer>();
        symbolizer->setSymbolType(HBPointSymbolizer::Triangle);
        symbolizer->setStrokeColor(QColor(10, 20, 30, 40));
        symbolizer->setStrokeWidth(2.5f);
        rule->addSymbolizer(symbolizer);
        written.addRule(rule);
        QByteArray data;
        QDataStream out(&data, QIODevice::WriteOnly);
        written.encodeWithCoder(out);

        HBStyle read;
        QDataStream in(data);
        QVERIFY(read.decodeWithCoder(in));
        const auto *back = qobject_cast<HBPointSymbolizer *>(read.rules().first()->symbolizers().first().get());
        QCOMPARE(back->symbolType(), int(HBPointSymbolizer::Triangle));
        QCOMPARE(back->strokeColor(), QColor(10, 20, 30, 40));
        QCOMPARE(back->strokeWidth(), 2.5f);
    }
};

QTEST_MAIN(tst_HBStyle)
#include "tst_HBStyle.moc"
