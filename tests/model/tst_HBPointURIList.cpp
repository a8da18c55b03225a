#include "model/HBPointURIList.h"

#include "model/HBTrackDataModel.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBManagedObjectModel.h"

#include <QRandomGenerator>
#include <QTest>

#include <limits>

namespace {

const QString storeA = QStringLiteral("6F1C2B3A-54D0-4E1B-9C3A-0A1B2C3D4E5F");
const QString storeB = QStringLiteral("0D9E8F7A-1B2C-4D3E-8F4A-5B6C7D8E9FA0");
const QString storeC = QStringLiteral("A1B2C3D4-E5F6-4789-9ABC-DEF012345678");
const QString storeD = QStringLiteral("11111111-2222-4333-8444-555555555555");
const QString point = QStringLiteral("HBTrackPoint");

QString permanent(const QString &store, const QString &entity, qint64 key)
{
    return QStringLiteral("x-hbgps://%1/%2/p%3").arg(store, entity).arg(key);
}

// Keys first, first + step, ... of one store's points.
QStringList points(const QString &store, qint64 first, qint64 count, qint64 step = 1)
{
    QStringList uris;
    for (qint64 i = 0; i < count; ++i)
        uris << permanent(store, point, qint64(quint64(first) + quint64(i) * quint64(step)));
    return uris;
}

QList<QUrl> urls(const QStringList &texts)
{
    QList<QUrl> list;
    for (const QString &text : texts)
        list << QUrl(text);
    return list;
}

const QStringList literalTexts{
    QStringLiteral("x-hbgps:///HBTrackPoint/t0C7B2A19-3E4D-4F5A-8B6C-7D8E9FA0B1C2"),
    QString(),
    QStringLiteral("not a uri"),
    QStringLiteral("http://example.com/a b?q=1#frag"),
    QStringLiteral("file:///tmp/Strecke M\u00fcnchen.gpx"),
    QStringLiteral("x-hbgps://%1/HBTrackPoint/p01").arg(storeA),          // leading zero
    QStringLiteral("x-hbgps://%1/HBTrackPoint/p-0").arg(storeA),
    QStringLiteral("x-hbgps://%1/HBTrackPoint/p+7").arg(storeA),
    QStringLiteral("x-hbgps://%1/HBTrackPoint/p").arg(storeA),
    QStringLiteral("x-hbgps://%1/HBTrackPoint/p9223372036854775808").arg(storeA),    // beyond qint64
    QStringLiteral("x-hbgps://%1/HBTrackPoint/p-9223372036854775809").arg(storeA),
    QStringLiteral("x-hbgps://%1/HBTrackPoint/p12?x").arg(storeA),
    QStringLiteral("x-hbgps://%1/HBTrackPoint/q12").arg(storeA),
    QStringLiteral("x-hbgps://%1/HBTrackPoint/sub/p12").arg(storeA),
    QStringLiteral("x-hbgps://%1//p12").arg(storeA),
    QStringLiteral("x-hbgps:///HBTrackPoint/p12"),
    QStringLiteral("X-HBGPS://%1/HBTrackPoint/p12").arg(storeA),
    QStringLiteral("x-hbgps://user@%1/HBTrackPoint/p12").arg(storeA),
    QStringLiteral("x-hbgps://%1:80/HBTrackPoint/p12").arg(storeA),
    QStringLiteral("x-hbgps://h\u00f6st/HBTrackPoint/p12"),
    QStringLiteral("x-hbgps://%1/Track%20Point/p12").arg(storeA),
    QStringLiteral("emoji \U0001F6B2 and a lone surrogate ") + QChar(0xD800),
    QStringLiteral("\uFEFFx-hbgps://%1/HBTrackPoint/p12").arg(storeA),          // begins with U+FEFF
    QString(QChar(0xFEFF)),
};

// Every run kind: a sequence, key differences, UTF-8 and UTF-16 text.
QStringList everyRunKind()
{
    return points(storeA, 1, 20) + points(storeB, 7, 3, -2) + literalTexts.mid(0, 3)
           + QStringList{QString(QChar(0xDC00))};
}

} // namespace

// Failure messages show what a reader gave, or that it gave nothing. Found
// by argument-dependent lookup through the Qt types, which are global.
template <typename T>
char *toString(const std::optional<T> &value)
{
    return value ? QTest::toString(*value) : qstrdup("std::nullopt");
}

class tst_HBPointURIList : public QObject
{
    Q_OBJECT

private slots:
    void roundTripsTexts_data()
    {
        QTest::addColumn<QStringList>("texts");

        constexpr qint64 max = std::numeric_limits<qint64>::max();
        constexpr qint64 min = std::numeric_limits<qint64>::min();
        QTest::newRow("empty") << QStringList();
        QTest::newRow("one") << QStringList{permanent(storeA, point, 1)};
        QTest::newRow("runs across stores")
            << points(storeA, 1, 40) + points(storeB, 1, 40) + points(storeC, 500, 17) + points(storeA, 41, 30);
        QTest::newRow("entities interleaved") << QStringList{permanent(storeA, point, 1), permanent(storeA, "HBWaypoint", 1),
                                                             permanent(storeA, point, 2), permanent(storeA, "HBWaypoint", 2)};
        QTest::newRow("stores interleaved")
            << QStringList{permanent(storeA, point, 5), permanent(storeB, point, 5), permanent(storeA, point, 6)};
        QTest::newRow("temporary and permanent mixed")
            << points(storeA, 1, 3) + literalTexts.mid(0, 1) + points(storeA, 4, 20) + literalTexts.mid(0, 1);
        QTest::newRow("descending") << points(storeA, 1000, 30, -1);
        QTest::newRow("step of three, then back") << points(storeA, 10, 20, 3) + points(storeA, 11, 20, 3);
        QTest::newRow("repeated keys") << points(storeA, 42, 25, 0) + points(storeA, 42, 3, 0);
        QTest::newRow("sequence between differences")
            << points(storeA, 1, 5, 7) + points(storeA, 100, 16) + points(storeA, 3, 5, -7);
        QTest::newRow("huge and negative keys")
            << QStringList{permanent(storeA, point, max), permanent(storeA, point, min), permanent(storeA, point, 0),
                           permanent(storeA, point, -1), permanent(storeA, point, max), permanent(storeA, point, -max)};
        // Keys past the largest qint64 wrap round to the smallest and on.
        QTest::newRow("sequence through the largest key") << points(storeA, max - 9, 20);
        QTest::newRow("greatest steps") << points(storeA, min, 20, max) + points(storeA, 0, 17, min);
        QTest::newRow("store case as written")
            << QStringList{permanent(storeA.toLower(), point, 1), permanent(storeA, point, 2),
                           permanent(QStringLiteral("a1B2c3D4-e5F6-4789-9abc-DEF012345678"), point, 3)};
        QTest::newRow("names that are no hosts")
            << QStringList{permanent("0", point, 1), permanent("-", point, 2), permanent("a_b", point, 3),
                           permanent(storeA, "HB_Point-2", 4)};
        QTest::newRow("texts kept as written") << literalTexts;
        QTest::newRow("duplicates") << literalTexts.mid(0, 2) + literalTexts.mid(0, 2) + points(storeA, 7, 2, 0);
    }

    // The texts come back exactly, each entry can be read alone, and the URLs
    // are those the texts parse to.
    void roundTripsTexts()
    {
        QFETCH(QStringList, texts);

        const QByteArray data = HBPointURIList::encode(texts);
        QCOMPARE(HBPointURIList::decodeStrings(data), texts);
        const std::optional<QList<QUrl>> decoded = HBPointURIList::decode(data);
        QCOMPARE(decoded, urls(texts));
        QCOMPARE(HBPointURIList::count(data), texts.size());
        for (qsizetype i = 0; i < texts.size(); ++i) {
            // Equal URLs may still differ in validity: a host Qt refuses.
            QCOMPARE(decoded->at(i).errorString(), QUrl(texts.at(i)).errorString());
            QCOMPARE(HBPointURIList::stringAt(data, i), texts.at(i));
            QCOMPARE(HBPointURIList::at(data, i), QUrl(texts.at(i)));
        }
        QCOMPARE(HBPointURIList::at(data, texts.size()), std::nullopt);
        QCOMPARE(HBPointURIList::stringAt(data, -1), std::nullopt);
    }

    void roundTripsURLs_data()
    {
        QTest::addColumn<QList<QUrl>>("uris");

        // Each differs from the permanent URL before it in one part beside the path.
        const QUrl plain(permanent(storeA, point, 1));
        QUrl emptyUserName(plain);
        emptyUserName.setUserName(QStringLiteral(""));
        QUrl userInfo(plain);
        userInfo.setUserInfo(QStringLiteral("user:pw"));
        QUrl port(plain);
        port.setPort(80);
        QUrl emptyQuery(plain);
        emptyQuery.setQuery(QStringLiteral(""));
        QUrl emptyFragment(plain);
        emptyFragment.setFragment(QStringLiteral(""));
        QUrl otherScheme(plain);
        otherScheme.setScheme(QStringLiteral("x-other"));
        QUrl encodedSlash(plain);
        encodedSlash.setPath(QStringLiteral("/HBTrack%2FPoint/p1"), QUrl::StrictMode);

        QTest::newRow("permanent, store in capitals") << urls(points(storeA, 1, 20) + points(storeB, 3, 4));
        QList<QUrl> besideThePath;
        for (const QUrl &uri : {emptyUserName, userInfo, port, emptyQuery, emptyFragment, otherScheme, encodedSlash})
            besideThePath << plain << uri;
        QTest::newRow("parts beside the path") << besideThePath;
        QTest::newRow("other URLs")
            << QList<QUrl>{QUrl(), QUrl(QStringLiteral("http://user:pw@example.com:8080/a b?q=%2F#f")),
                           QUrl::fromLocalFile(QStringLiteral("/tmp/Strecke M\u00fcnchen.gpx")),
                           QUrl(QStringLiteral("mailto:someone@example.com")), QUrl(QStringLiteral("http://[::1]:80/")),
                           QUrl(QStringLiteral("http://m\u00fcnchen.de/")), QUrl(QStringLiteral("relative/path")),
                           QUrl(QStringLiteral("x-hbgps:///HBTrackPoint/t0C7B2A19-3E4D-4F5A-8B6C-7D8E9FA0B1C2"))};
    }

    void roundTripsURLs()
    {
        QFETCH(QList<QUrl>, uris);

        const QByteArray data = HBPointURIList::encode(uris);
        const std::optional<QList<QUrl>> decoded = HBPointURIList::decode(data);
        QCOMPARE(decoded, uris);
        for (qsizetype i = 0; i < uris.size(); ++i) {
            QCOMPARE(decoded->at(i).toString(QUrl::FullyEncoded), uris.at(i).toString(QUrl::FullyEncoded));
            QCOMPARE(HBPointURIList::at(data, i), uris.at(i));
        }
    }

    void writesTheDocumentedFormat_data()
    {
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QByteArray>("hex");

        // version, entry count, name count, names; then the runs.
        QTest::newRow("empty") << QStringList() << QByteArray("01 00 00");
        QTest::newRow("key differences")
            << QStringList{permanent("S", "E", 1), permanent("S", "E", 2), permanent("S", "E", -1)}
            << QByteArray("01 03 02 0153 0145"
                          " 0d 00 01 02 02 05");   // 3 << 2 | 1, store 0, entity 1, first 1, +1, -3
        QTest::newRow("sequence")
            << points("S", 300, 20, -2)
            << QByteArray("01 14 02 0153 0c4842547261636b506f696e74"
                          " 50 00 01 d804 03");   // 20 << 2 | 0, first 300, step -2
        QTest::newRow("texts")
            << QStringList{QStringLiteral("\u00e9"), QString(QChar(0xD800))}
            << QByteArray("01 02 00"
                          " 06 02c3a9"   // 1 << 2 | 2, UTF-8
                          " 07 0100d8");   // 1 << 2 | 3, UTF-16 little-endian
    }

    // The value is kept in store files: a change to the written bytes must be
    // a new format version, not an accident.
    void writesTheDocumentedFormat()
    {
        QFETCH(QStringList, texts);
        QFETCH(QByteArray, hex);

        const QByteArray written = QByteArray::fromHex(hex);
        QCOMPARE(HBPointURIList::encode(texts).toHex(' '), written.toHex(' '));
        QCOMPARE(HBPointURIList::decodeStrings(written), texts);
    }

    void millionPointsStayCompact_data()
    {
        QTest::addColumn<int>("minimumStep");
        QTest::addColumn<int>("maximumStep");
        QTest::addColumn<qsizetype>("bytesPerPoint");
        QTest::addColumn<qsizetype>("bytesPerList");

        // Four runs cost 5 header bytes, 4 * 37 + 13 of names and at most
        // 4 * (4 + 1 + 1 + 3 + 1) of run headers: 206 bytes in all.
        QTest::newRow("consecutive") << 1 << 1 << qsizetype(0) << qsizetype(206);
        // A key difference from -64 to 63 takes one byte.
        QTest::newRow("gaps of deleted points") << 1 << 3 << qsizetype(1) << qsizetype(206);
        // One from -2^20 to 2^20 - 1 takes three bytes.
        QTest::newRow("keys jumping about") << -(1 << 19) << (1 << 19) << qsizetype(3) << qsizetype(206);
    }

    // A million points in four stores (a recording across three ten-day
    // periods) whose keys step by minimumStep to maximumStep.
    void millionPointsStayCompact()
    {
        QFETCH(int, minimumStep);
        QFETCH(int, maximumStep);
        QFETCH(qsizetype, bytesPerPoint);
        QFETCH(qsizetype, bytesPerList);

        constexpr qsizetype total = 1'000'000;
        QRandomGenerator random(20240611);
        QStringList texts;
        texts.reserve(total);
        for (const QString &store : {storeA, storeB, storeC, storeD}) {
            qint64 key = random.bounded(1000);
            for (qsizetype i = 0; i < total / 4; ++i) {
                texts << permanent(store, point, key);
                key += random.bounded(minimumStep, maximumStep + 1);
            }
        }

        const QByteArray data = HBPointURIList::encode(texts);
        QVERIFY2(data.size() <= 8 * total, qPrintable(QString::number(data.size())));
        QVERIFY2(data.size() <= bytesPerPoint * total + bytesPerList, qPrintable(QString::number(data.size())));
        QCOMPARE(HBPointURIList::count(data), total);
        QCOMPARE(HBPointURIList::stringAt(data, total - 1), texts.last());
        QVERIFY(HBPointURIList::decodeStrings(data) == texts);
    }

    // The URIs the store makes come back, and a track's points saved in one
    // store are a single run.
    void storeIDsComeBackAndStaySmall()
    {
        const HBEntityDescription *entity = HBTrackDataModel::model()->entityNamed(point);
        QVERIFY(entity);
        QList<QUrl> uris;
        QStringList texts;
        for (qint64 key = 1; key <= 1000; ++key) {
            const HBManagedObjectID id = HBManagedObjectID::permanentID(entity, storeA, key);
            uris << id.URIRepresentation();
            texts << id.uriString();
        }
        const HBManagedObjectID temporary = HBManagedObjectID::temporaryID(entity);
        uris << temporary.URIRepresentation();
        texts << temporary.uriString();

        const QByteArray fromURLs = HBPointURIList::encode(uris);
        const QByteArray fromTexts = HBPointURIList::encode(texts);
        QCOMPARE(HBPointURIList::decode(fromURLs), uris);
        QCOMPARE(HBPointURIList::decodeStrings(fromTexts), texts);
        // Version, count and name count; two names; a sequence run (header 2,
        // names 2, key 1, step 1); the temporary ID's text (header 1, length 1).
        const qsizetype expected = 4 + 37 + 13 + 6 + 2 + temporary.uriString().size();
        QCOMPARE(fromURLs.size(), expected);
        QCOMPARE(fromTexts.size(), expected);
    }

    void idsEncodeAsTheirTexts_data()
    {
        const HBManagedObjectModel *model = HBTrackDataModel::model();
        const HBEntityDescription *trackPoint = model->entityNamed(point);
        const HBEntityDescription *waypoint = model->entityNamed(QStringLiteral("HBWaypoint"));
        const auto run = [](const HBEntityDescription *entity, const QString &store, qint64 first, qint64 count,
                            qint64 step = 1) {
            QList<HBManagedObjectID> ids;
            for (qint64 i = 0; i < count; ++i)
                ids << HBManagedObjectID::permanentID(entity, store, first + i * step);
            return ids;
        };
        const HBManagedObjectID temporary = HBManagedObjectID::temporaryID(trackPoint);
        QTest::addColumn<QList<HBManagedObjectID>>("ids");
        QTest::newRow("empty") << QList<HBManagedObjectID>();
        QTest::newRow("one store") << run(trackPoint, storeA, 1, 40);
        QTest::newRow("stores alternate") << run(trackPoint, storeA, 5, 3) + run(trackPoint, storeB, 5, 3)
                                                 + run(trackPoint, storeA, 8, 20) + run(trackPoint, storeB, 8, 1);
        QTest::newRow("entity changes in one store")
            << run(trackPoint, storeC, 1, 18) + run(waypoint, storeC, 19, 18) + run(trackPoint, storeC, 37, 2);
        QTest::newRow("temporary between runs")
            << run(trackPoint, storeA, 1, 17) + QList{temporary, HBManagedObjectID()} + run(trackPoint, storeA, 18, 17);
        QTest::newRow("keys step back and to the extremes")
            << run(trackPoint, storeD, 100, 20, -3)
                   + QList{HBManagedObjectID::permanentID(trackPoint, storeD, std::numeric_limits<qint64>::min()),
                           HBManagedObjectID::permanentID(trackPoint, storeD, std::numeric_limits<qint64>::max())};
        QTest::newRow("store name kept as text") << run(trackPoint, QStringLiteral("host.name"), 1, 20)
                                                        + run(trackPoint, storeA, 1, 2);
    }

    // The IDs of a segment's points are encoded without their texts; the value
    // must not differ by a byte from the one their texts give.
    void idsEncodeAsTheirTexts()
    {
        QFETCH(QList<HBManagedObjectID>, ids);
        QStringList texts;
        for (const HBManagedObjectID &id : ids)
            texts << id.uriString();
        const QByteArray fromIDs = HBPointURIList::encode(ids);
        QCOMPARE(fromIDs.toHex(' '), HBPointURIList::encode(texts).toHex(' '));
        QCOMPARE(HBPointURIList::decodeStrings(fromIDs), texts);
    }

    // A sequence run of the largest count is a valid value of 19 bytes: it is
    // counted and read by index without the list being built.
    void readsLargestListWithoutBuildingIt()
    {
        const QByteArray data = QByteArray::fromHex("01 80808020 02 0153 0145"
                                                    " 8080808001 00 01 02 04");   // from key 1 in steps of 2
        QCOMPARE(HBPointURIList::count(data), HBPointURIList::maximumCount);
        QCOMPARE(HBPointURIList::stringAt(data, 0), QStringLiteral("x-hbgps://S/E/p1"));
        QCOMPARE(HBPointURIList::stringAt(data, HBPointURIList::maximumCount - 1),
                 QStringLiteral("x-hbgps://S/E/p%1").arg(2 * HBPointURIList::maximumCount - 1));
        QCOMPARE(HBPointURIList::at(data, HBPointURIList::maximumCount), std::nullopt);
    }

    void refusesTruncatedOrExtendedValue()
    {
        const QByteArray whole = HBPointURIList::encode(everyRunKind());
        QCOMPARE(HBPointURIList::count(whole), everyRunKind().size());
        for (qsizetype size = 0; size < whole.size(); ++size) {
            const QByteArray truncated = whole.first(size);
            QCOMPARE(HBPointURIList::count(truncated), -1);
            QCOMPARE(HBPointURIList::decode(truncated), std::nullopt);
            QCOMPARE(HBPointURIList::decodeStrings(truncated), std::nullopt);
            QCOMPARE(HBPointURIList::at(truncated, 0), std::nullopt);
        }
        QCOMPARE(HBPointURIList::count(whole + '\0'), -1);
        QCOMPARE(HBPointURIList::stringAt(whole + '\0', 0), std::nullopt);
    }

    void refusesDamagedValues_data()
    {
        QTest::addColumn<QByteArray>("hex");

        QTest::newRow("nothing") << QByteArray("");
        QTest::newRow("version 0") << QByteArray("00 00 00");
        QTest::newRow("version 2") << QByteArray("02 00 00");
        QTest::newRow("2^40 entries") << QByteArray("01 808080808020 02 0153 0145 808080808080 01 00 01 02 02");
        QTest::newRow("one entry more than allowed") << QByteArray("01 81808020 02 0153 0145 8480808001 00 01 02 02");
        QTest::newRow("2^62 names") << QByteArray("01 01 8080808080808080c000 0153");
        QTest::newRow("name longer than the value") << QByteArray("01 01 01 ffffffffffffffff7f 53");
        QTest::newRow("varint of eleven bytes") << QByteArray("01 8080808080808080808000 00");
        // Read modulo 2^64 this count would be 0, an empty list.
        QTest::newRow("varint beyond 64 bits") << QByteArray("01 80808080808080808002 00");
        QTest::newRow("run of no entries") << QByteArray("01 01 02 0153 0145 00 00 01 02 02 05 00 01 02");
        QTest::newRow("run longer than the count") << QByteArray("01 01 02 0153 0145 09 00 01 02 02");
        QTest::newRow("runs short of the count") << QByteArray("01 03 02 0153 0145 09 00 01 02 02");
        QTest::newRow("store name out of range") << QByteArray("01 01 02 0153 0145 05 02 01 02");
        QTest::newRow("entity name out of range") << QByteArray("01 01 02 0153 0145 05 00 7f 02");
        QTest::newRow("text longer than the value") << QByteArray("01 01 00 06 ffffffff0f 41");
        QTest::newRow("UTF-16 text of 2^63 units") << QByteArray("01 01 00 07 80808080808080808001");
        QTest::newRow("UTF-16 code unit cut in half") << QByteArray("01 01 00 07 01 41");
        QTest::newRow("bytes after the runs") << QByteArray("01 01 00 06 01 41 00");
    }

    // Each value is refused as a whole, by every reader.
    void refusesDamagedValues()
    {
        QFETCH(QByteArray, hex);

        const QByteArray data = QByteArray::fromHex(hex);
        QCOMPARE(HBPointURIList::count(data), -1);
        QCOMPARE(HBPointURIList::decode(data), std::nullopt);
        QCOMPARE(HBPointURIList::decodeStrings(data), std::nullopt);
        QCOMPARE(HBPointURIList::at(data, 0), std::nullopt);
    }

    // Every byte of a valid value changed in turn, and random bytes behind the
    // version: the readers agree with each other and do not crash (run this
    // under the address sanitizer too).
    void damagedBytesNeverCrash()
    {
        const auto readersAgree = [](const QByteArray &data) {
            const qsizetype count = HBPointURIList::count(data);
            const std::optional<QStringList> texts = HBPointURIList::decodeStrings(data);
            const std::optional<QList<QUrl>> uris = HBPointURIList::decode(data);
            if (count < 0)
                return !texts && !uris && !HBPointURIList::stringAt(data, 0);
            return texts && uris && texts->size() == count && uris->size() == count
                   && (count == 0 || HBPointURIList::stringAt(data, count - 1) == texts->last());
        };

        const QByteArray whole = HBPointURIList::encode(everyRunKind());
        for (qsizetype at = 0; at < whole.size(); ++at) {
            for (int value : {0x00, 0x01, 0x02, 0x03, 0x7f, 0x80, 0xff, uchar(whole.at(at)) ^ 0x40}) {
                QByteArray damaged = whole;
                damaged[at] = char(value);
                QVERIFY2(readersAgree(damaged), qPrintable(damaged.toHex(' ')));
            }
        }
        QRandomGenerator random(7);
        for (int i = 0; i < 20000; ++i) {
            QByteArray bytes(3 + random.bounded(24), Qt::Uninitialized);
            for (char &byte : bytes)
                byte = char(random.bounded(256));
            // A few entries and names, so that many get as far as the runs.
            bytes[0] = char(HBPointURIList::formatVersion);
            bytes[1] = char(random.bounded(8));
            bytes[2] = char(random.bounded(3));
            QVERIFY2(readersAgree(bytes), qPrintable(bytes.toHex(' ')));
        }
    }
};

QTEST_GUILESS_MAIN(tst_HBPointURIList)
#include "tst_HBPointURIList.moc"
