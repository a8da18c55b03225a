#include "ImportTestSupport.h"
#include "SqliteRows.h"

#include "import/HBNMEAImportOperation.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QFileInfo>
#include <QTest>

#include <thread>

using namespace importtest;

namespace {

// The standard example fix, with and without the mode field before the checksum.
const QByteArray kRMC = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A*6A";
const QByteArray kRMCWithoutMode = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A";
const QString kPoint = QStringLiteral("48.117300 11.516667 1994-03-23T12:35:19Z -");

const QString kRMCFields13 = QStringLiteral("NMEA string has incorrect number of fields for GPRMC (expected 14, found 13");
const QString kDateError = QStringLiteral("Date or time field invalid length or NaN.");
const QString kLatitudeError = QStringLiteral("Latitude field invalid length or NaN.");
const QString kLongitudeError = QStringLiteral("Longitude field invalid length or NaN.");

QByteArray rmc(const QByteArray &time, const QByteArray &latitude, const QByteArray &northSouth,
               const QByteArray &longitude, const QByteArray &eastWest, const QByteArray &date)
{
    return "$GPRMC," + time + ",A," + latitude + ',' + northSouth + ',' + longitude + ',' + eastWest + ",022.4,084.4,"
        + date + ",003.1,W,A*6A";
}

QByteArray rmcAt(const QByteArray &time)
{
    return rmc(time, "4807.038", "N", "01131.000", "E", "230394");
}

// Its own time and position differ from the RMC's on purpose: only the altitude counts.
QByteArray gga(const QByteArray &altitude)
{
    return "$GPGGA,000000,0000.000,S,00000.000,W,1,08,0.9," + altitude + ",M,46.9,M,,*47";
}

// what a field is read as
constexpr int Latitude = 0, Longitude = 1, Date = 2;

QString line(int number, const QString &message)
{
    return QStringLiteral("line %1: %2").arg(number).arg(message);
}

// latitude longitude date elevation, "-" for what is absent
QString describe(const HBTrackPoint *point)
{
    const QDateTime date = point->date();
    return QStringList{decimalText(point->latitude()), decimalText(point->longitude()),
                       date.isValid() ? date.toString(Qt::ISODate) : QStringLiteral("-"), decimalText(point->elevation())}
        .join(u' ');
}

// What one import left behind, read back in a fresh context.
struct Imported
{
    QStringList errorLog;    // the operation's
    QStringList logged;      // its log lines
    qsizetype sources = 0;   // 1: one import source has the file's path
    qsizetype tracks = 0;
    qsizetype segments = 0;
    QStringList points;      // described, in segment order
    qsizetype pointsWithElevation = 0;
};

} // namespace

// An NMEA log becomes one track of one segment: which sentences make points,
// the exact values and errors they give, and what reaches the stores.
class tst_HBNMEAImportOperation : public QObject
{
    Q_OBJECT

    ImportTestHome m_home;
    int m_fileNumber = 0;

    QString write(const QByteArray &bytes)
    {
        const QString path = m_home.filePath(QStringLiteral("log %1.nmea").arg(++m_fileNumber));
        if (!writeFile(path, bytes))
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }

    static std::shared_ptr<HBNMEAImportOperation> run(const QString &path)
    {
        auto operation = std::make_shared<HBNMEAImportOperation>();
        operation->setFilePath(path);
        operation->setImportDate(QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9), Qt::UTC));
        runToEnd(operation);
        return operation;
    }

    static Imported import(const QString &path)
    {
        Imported imported;
        const ImportLog log;
        const std::shared_ptr<HBNMEAImportOperation> operation = run(path);
        imported.errorLog = operation->errorLog();
        imported.logged = log.lines();

        std::unique_ptr<HBManagedObjectContext> fresh = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
        fresh->performBlockAndWait([&] {
            const HBImportSource *source = importSourceWithPath(fresh.get(), path);
            if (!source)
                return;
            imported.sources = 1;
            for (HBManagedObject *object : source->tracks()) {
                ++imported.tracks;
                for (HBTrackSegment *segment : static_cast<HBTrack *>(object)->segments()) {
                    ++imported.segments;
                    for (const HBTrackPoint *point : segment->points()) {
                        imported.points.append(describe(point));
                        imported.pointsWithElevation += point->elevation() ? 1 : 0;
                    }
                }
            }
        });
        return imported;
    }

private slots:
    void initTestCase() { QVERIFY(m_home.setUp()); }

    void sentencesMakePointsAndErrors_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QStringList>("points");
        QTest::addColumn<QStringList>("errors");

        const QString north = QStringLiteral("48.117300 11.516667 - -");
        const QString dated = QStringLiteral("- - 1994-03-23T12:35:19Z -");

        // field counts and the "---" prefix
        QTest::newRow("RMC without mode field: 13 fields") << kRMCWithoutMode << QStringList() << QStringList{line(1, kRMCFields13)};
        QTest::newRow("RMC with mode field") << kRMC << QStringList{kPoint} << QStringList();
        QTest::newRow("RMC with navigation status: 15 fields")
            << QByteArray("$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A,V*6A") << QStringList()
            << QStringList{line(1, QStringLiteral("NMEA string has incorrect number of fields for GPRMC (expected 14, found 15"))};
        QTest::newRow("--- prefix") << "---," + kRMC << QStringList{kPoint} << QStringList();
        QTest::newRow("--- prefix, 13 fields after it") << "---," + kRMCWithoutMode << QStringList() << QStringList{line(1, kRMCFields13)};
        QTest::newRow("only one --- is dropped") << "---,---," + kRMC << QStringList() << QStringList();
        QTest::newRow("--- alone") << QByteArray("---") << QStringList() << QStringList();


        // what a point needs: a date or a whole position
        QTest::newRow("empty date") << rmc("123519", "4807.038", "N", "01131.000", "E", "") << QStringList{north}
                                    << QStringList{line(1, kDateError)};
        QTest::newRow("empty position") << rmc("123519", "", "", "", "", "230394") << QStringList{dated}
                                        << QStringList{line(1, kLatitudeError), line(1, kLongitudeError)};
        QTest::newRow("date and latitude only") << rmc("123519", "4807.038", "N", "", "", "230394")
                                                << QStringList{QStringLiteral("48.117300 - 1994-03-23T12:35:19Z -")}
                                                << QStringList{line(1, kLongitudeError)};
        QTest::newRow("latitude only: no point") << rmc("123519", "4807.038", "N", "", "", "")
                                                 << QStringList() << QStringList{line(1, kDateError), line(1, kLongitudeError)};
        QTest::newRow("all empty: no point, three errors")
            << QByteArray("$GPGSV,1\n$GPRMC,,V,,,,,,,,,,N*53") << QStringList()
            << QStringList{line(2, kDateError), line(2, kLatitudeError), line(2, kLongitudeError)};

        // hemispheres
        QTest::newRow("lower-case s and w") << rmc("123519", "4807.038", "s", "01131.000", "w", "230394")
                                            << QStringList{QStringLiteral("-48.117300 -11.516667 1994-03-23T12:35:19Z -")}
                                            << QStringList();
        QTest::newRow("empty hemispheres are N and E") << rmc("123519", "4807.038", "", "01131.000", "", "230394")
                                                       << QStringList{kPoint} << QStringList();
        QTest::newRow("a word is not S") << rmc("123519", "4807.038", "SOUTH", "01131.000", "WEST", "230394")
                                         << QStringList{kPoint} << QStringList();

        // what is not read
        QTest::newRow("other sentences and talkers are ignored")
            << QByteArray("# comment\n$GNRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A*6A\n"
                          "$GPGSV,3,1,11*7A\n$PMTK001,604,3*32\n!AIVDO,1,1,,,B>cSnNP00FVur7UaC7WQ3wS1jCJJ,0*73\n"
                          "$gprmc,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A*6A")
            << QStringList() << QStringList();
        QTest::newRow("checksum is not checked") << QByteArray("$GPRMC,123519,A,4807.038,N,01131.000,E,,,230394,,,A*00")
                                                 << QStringList{kPoint} << QStringList();
        QTest::newRow("void fix is imported") << QByteArray("$GPRMC,123519,V,4807.038,N,01131.000,E,,,230394,,,N*XX")
                                              << QStringList{kPoint} << QStringList();
        QTest::newRow("white space around a sentence") << " \t" + kRMC + "\t  \r\n" << QStringList{kPoint} << QStringList();

        // line numbers count the lines with text only
        QTest::newRow("blank lines are not counted")
            << "\n\n$GPGSV,1\n\n   \n\t\n$GPGSA,1\n\n\n" + kRMCWithoutMode + "\n\n" << QStringList()
            << QStringList{line(3, kRMCFields13)};
        QTest::newRow("CR LF counts once") << "$GPGSV,1\r\n$GPGSA,1\r\n\r\n" + kRMCWithoutMode + "\r\n" << QStringList()
                                           << QStringList{line(3, kRMCFields13)};
        QTest::newRow("lone CR ends a line") << "$GPGSV,1\r$GPGSA,1\r" + kRMCWithoutMode << QStringList()
                                             << QStringList{line(3, kRMCFields13)};
        // white space is skipped after a line only, so blank text before the
        // first line break is a line of its own
        QTest::newRow("blank first line counts") << "  \n" + kRMCWithoutMode << QStringList() << QStringList{line(2, kRMCFields13)};
        QTest::newRow("errors of several lines")
            << kRMCWithoutMode + "\n" + kRMC + "\n\n" + rmc("123519", "", "", "01131.000", "E", "230394") + "\n" + kRMCWithoutMode
            << QStringList{kPoint, QStringLiteral("- 11.516667 1994-03-23T12:35:19Z -")}
            << QStringList{line(1, kRMCFields13), line(3, kLatitudeError), line(4, kRMCFields13)};
        QTest::newRow("points keep file order")
            << rmcAt("000003") + "\n" + rmcAt("000001") + "\n" + rmcAt("000002")
            << QStringList{QStringLiteral("48.117300 11.516667 1994-03-23T00:00:03Z -"),
                           QStringLiteral("48.117300 11.516667 1994-03-23T00:00:01Z -"),
                           QStringLiteral("48.117300 11.516667 1994-03-23T00:00:02Z -")}
            << QStringList();

        // GGA gives its altitude to the point of the latest accepted RMC
        const QString at1 = QStringLiteral("48.117300 11.516667 1994-03-23T00:00:01Z ");
        const QString at2 = QStringLiteral("48.117300 11.516667 1994-03-23T00:00:02Z ");
        QTest::newRow("GGA after its RMC") << rmcAt("000001") + "\n" + gga("545.4") << QStringList{at1 + "545.4"} << QStringList();
        QTest::newRow("GGA before the first RMC is dropped") << gga("545.4") + "\n" + rmcAt("000001")
                                                             << QStringList{at1 + "-"} << QStringList();
        QTest::newRow("second GGA overwrites") << rmcAt("000001") + "\n" + gga("545.4") + "\n" + gga("600.5")
                                               << QStringList{at1 + "600.5"} << QStringList();
        QTest::newRow("pairs, RMC first") << rmcAt("000001") + "\n" + gga("10") + "\n" + rmcAt("000002") + "\n" + gga("20")
                                          << QStringList{at1 + "10", at2 + "20"} << QStringList();
        QTest::newRow("pairs, GGA first: by order, not by time")
            << gga("10") + "\n" + rmcAt("000001") + "\n" + gga("20") + "\n" + rmcAt("000002")
            << QStringList{at1 + "20", at2 + "-"} << QStringList();
        QTest::newRow("GGA after a rejected RMC goes to the point before")
            << rmcAt("000001") + "\n" + gga("1.0") + "\n" + kRMCWithoutMode + "\n" + gga("2.0") << QStringList{at1 + "2.0"}
            << QStringList{line(3, kRMCFields13)};
        QTest::newRow("GGA never makes a point") << gga("545.4") + "\n" + gga("600.5") << QStringList() << QStringList();
        QTest::newRow("GGA without checksum: 15 fields")
            << rmcAt("000001") + "\n$GPGGA,000001,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,"
            << QStringList{at1 + "-"}
            << QStringList{line(2, QStringLiteral("NMEA string has incorrect number of fields for GPGGA (expected 16, found 15"))};
        QTest::newRow("GGA without altitude clears it") << rmcAt("000001") + "\n" + gga("545.4") + "\n" + gga("")
                                                        << QStringList{at1 + "-"} << QStringList();
        QTest::newRow("GGA altitude keeps its digits") << rmcAt("000001") + "\n" + gga("-0012.50")
                                                       << QStringList{at1 + "-12.50"} << QStringList();
        QTest::newRow("GGA altitude that is no number") << rmcAt("000001") + "\n" + gga("12 m") << QStringList{at1 + "-"}
                                                        << QStringList();

        QTest::newRow("empty file") << QByteArray() << QStringList() << QStringList();
        QTest::newRow("no valid sentence") << QByteArray("garbage\n$GPGSA,A,3*39\r\n\r\n") << QStringList() << QStringList();
        QTest::newRow("UTF-16 text") << QByteArray("\xFF\xFE$\0G\0P\0R\0M\0C\0,\0\r\0\n\0", 20) << QStringList()
                                     << QStringList();
    }

    // Every row still makes exactly one track of one segment and one import
    // source, and every error-log entry is one log line.
    void sentencesMakePointsAndErrors()
    {
        QFETCH(QByteArray, log);
        QFETCH(QStringList, points);
        QFETCH(QStringList, errors);

        const Imported imported = import(write(log));
        QCOMPARE(imported.errorLog, errors);
        QCOMPARE(imported.logged, errors);
        QCOMPARE(imported.sources, 1);
        QCOMPARE(imported.tracks, 1);
        QCOMPARE(imported.segments, 1);
        QCOMPARE(imported.points, points);
    }

    // A field's value, or nothing and one error (logged as of line 0, as no
    // line is being read).
    void fieldsGiveExactValuesOrOneError_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<QByteArray>("second");   // the hemisphere, or the date beside a time
        QTest::addColumn<QString>("value");       // empty: refused with an error

        // at least 3 digits after the point, else one per character after the degrees
        QTest::newRow("latitude, 4 characters") << Latitude << QByteArray("4807") << QByteArray("N") << "48.117";
        QTest::newRow("latitude, 5 characters") << Latitude << QByteArray("4807.") << QByteArray("N") << "48.117";
        QTest::newRow("latitude, 6 characters") << Latitude << QByteArray("4807.0") << QByteArray("N") << "48.1167";
        QTest::newRow("latitude, 8 characters") << Latitude << QByteArray("4807.038") << QByteArray("N") << "48.117300";
        QTest::newRow("latitude, 10 characters") << Latitude << QByteArray("4807.03812") << QByteArray("N") << "48.11730200";
        QTest::newRow("latitude, 15 characters") << Latitude << QByteArray("4807.0381234567") << QByteArray("N")
                                                 << "48.1173020576117";
        // the digits must fit 64 bits: 90 degrees take 17 after the point, not 18
        QTest::newRow("latitude, 19 characters") << Latitude << QByteArray("9000.00000000000000") << QByteArray("N")
                                                 << "90.00000000000000000";
        QTest::newRow("latitude, 20 characters: too many digits")
            << Latitude << QByteArray("9000.000000000000000") << QByteArray("N") << "";
        QTest::newRow("minutes over 60 carry") << Latitude << QByteArray("48070") << QByteArray("N") << "49.167";
        QTest::newRow("point right after the degrees") << Latitude << QByteArray("48.07038") << QByteArray("N") << "48.001173";
        QTest::newRow("south") << Latitude << QByteArray("4807.038") << QByteArray("S") << "-48.117300";
        QTest::newRow("zero south is zero") << Latitude << QByteArray("0000.000") << QByteArray("S") << "0.000000";
        QTest::newRow("a sign belongs to the degrees") << Latitude << QByteArray("-4807.038") << QByteArray("N") << "9.4506333";
        QTest::newRow("negative degrees refused") << Latitude << QByteArray("-9000.0") << QByteArray("N") << "";
        QTest::newRow("latitude, 3 characters") << Latitude << QByteArray("480") << QByteArray("N") << "";
        QTest::newRow("latitude empty") << Latitude << QByteArray() << QByteArray("N") << "";
        QTest::newRow("latitude with a letter") << Latitude << QByteArray("48O7.038") << QByteArray("N") << "";
        QTest::newRow("latitude with a space") << Latitude << QByteArray("4807.038 ") << QByteArray("N") << "";
        QTest::newRow("latitude with two points") << Latitude << QByteArray("4807.03.8") << QByteArray("N") << "";

        QTest::newRow("longitude, 5 characters") << Longitude << QByteArray("01131") << QByteArray("E") << "11.517";
        QTest::newRow("longitude, 7 characters") << Longitude << QByteArray("01131.0") << QByteArray("E") << "11.5167";
        QTest::newRow("longitude, 9 characters") << Longitude << QByteArray("01131.000") << QByteArray("E") << "11.516667";
        QTest::newRow("longitude, 11 characters") << Longitude << QByteArray("14726.73195") << QByteArray("E") << "147.44553250";
        QTest::newRow("west") << Longitude << QByteArray("01131.000") << QByteArray("W") << "-11.516667";
        QTest::newRow("west, lower case") << Longitude << QByteArray("01131.000") << QByteArray("w") << "-11.516667";
        QTest::newRow("longitude, 19 characters") << Longitude << QByteArray("18000.0000000000000") << QByteArray("W")
                                                  << "-180.0000000000000000";
        QTest::newRow("longitude, 4 characters") << Longitude << QByteArray("0113") << QByteArray("E") << "";
        QTest::newRow("longitude not a number") << Longitude << QByteArray("x1131.000") << QByteArray("E") << "";

        QTest::newRow("whole seconds") << Date << QByteArray("123519") << QByteArray("230394") << "1994-03-23T12:35:19Z";
        QTest::newRow("fraction dropped") << Date << QByteArray("123519.999") << QByteArray("230394") << "1994-03-23T12:35:19Z";
        QTest::newRow("point without fraction") << Date << QByteArray("222509.") << QByteArray("231019") << "2019-10-23T22:25:09Z";
        QTest::newRow("74 is 1974") << Date << QByteArray("000000") << QByteArray("010174") << "1974-01-01T00:00:00Z";
        QTest::newRow("99 is 1999") << Date << QByteArray("000000") << QByteArray("311299") << "1999-12-31T00:00:00Z";
        QTest::newRow("00 is 2000") << Date << QByteArray("000000") << QByteArray("010100") << "2000-01-01T00:00:00Z";
        QTest::newRow("73 is 2073") << Date << QByteArray("000000") << QByteArray("311273") << "2073-12-31T00:00:00Z";
        QTest::newRow("29 February") << Date << QByteArray("120000") << QByteArray("290224") << "2024-02-29T12:00:00Z";
        // out-of-range parts roll over
        QTest::newRow("30 February") << Date << QByteArray("120000") << QByteArray("300223") << "2023-03-02T12:00:00Z";
        QTest::newRow("month 13") << Date << QByteArray("000000") << QByteArray("011394") << "1995-01-01T00:00:00Z";
        QTest::newRow("day 0, month 0") << Date << QByteArray("000000") << QByteArray("000094") << "1993-11-30T00:00:00Z";
        QTest::newRow("24:00:00") << Date << QByteArray("240000") << QByteArray("311299") << "2000-01-01T00:00:00Z";
        QTest::newRow("second 60") << Date << QByteArray("235960") << QByteArray("010100") << "2000-01-02T00:00:00Z";

        QTest::newRow("time of 5 characters") << Date << QByteArray("12351") << QByteArray("230394") << "";
        QTest::newRow("date of 5 characters") << Date << QByteArray("123519") << QByteArray("23039") << "";
        QTest::newRow("date of 7 characters") << Date << QByteArray("123519") << QByteArray("2303940") << "";
        QTest::newRow("empty date") << Date << QByteArray("123519") << QByteArray() << "";
        QTest::newRow("date with a minus inside") << Date << QByteArray("000231.099") << QByteArray("2208-1") << "";
        QTest::newRow("time with colons") << Date << QByteArray("12:35:19") << QByteArray("230394") << "";
        QTest::newRow("time with a trailing space") << Date << QByteArray("222517 ") << QByteArray("231019") << "";
        QTest::newRow("time with a letter") << Date << QByteArray("222515.x") << QByteArray("231019") << "";
    }

    void fieldsGiveExactValuesOrOneError()
    {
        QFETCH(int, kind);
        QFETCH(QByteArray, field);
        QFETCH(QByteArray, second);
        QFETCH(QString, value);

        HBNMEAImportOperation operation;
        QString read;
        if (kind == Date) {
            const QDateTime date = operation.dateFromTimeField(field, second);
            read = date.isValid() ? date.toString(Qt::ISODate) : QString();
            if (date.isValid())
                QCOMPARE(date.timeSpec(), Qt::UTC);
        } else {
            const std::optional<HBDecimal> angle = kind == Latitude ? operation.decimalNumberFromLatitudeField(field, second)
                                                                    : operation.decimalNumberFromLongitudeField(field, second);
            read = angle ? angle->toString() : QString();
        }
        QCOMPARE(read, value);
        const QString error = kind == Date ? kDateError : kind == Latitude ? kLatitudeError : kLongitudeError;
        QCOMPARE(operation.errorLog(), value.isEmpty() ? QStringList{line(0, error)} : QStringList());
    }

    void corpusLogs_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<qsizetype>("points");
        QTest::addColumn<qsizetype>("withElevation");
        QTest::addColumn<qsizetype>("errors");
        QTest::addColumn<QStringList>("exactPoints");   // empty: not compared

        // Counted by hand from the files, by the rules: a point per $GPRMC
        // line of 14 fields with a good date or a good position (date field
        // of 6 characters and time of at least 6, both numbers; latitude and
        // longitude numbers longer than 3 and 4 characters); an elevation
        // when a 16-field $GPGGA with a numeric altitude is the last GGA
        // between that RMC and the next accepted one; an error per RMC or
        // GGA line of another field count and per bad field. Cross-checked
        // with a separate script applying the same rules.
        const auto add = [](const char *file, qsizetype points, qsizetype withElevation, qsizetype errors,
                            const QStringList &exactPoints = {}) {
            QTest::newRow(file) << QString::fromLatin1(file) << points << withElevation << errors << exactPoints;
        };
        // RMC with the mode field; GGA after its RMC, the last RMC without GGA where noted
        // 4 RMC, GGA after the first three; 3549.4991 N is 35 + 49.4991 / 60, to 7 digits, 08650.8239 W likewise
        const QString amod = QStringLiteral("35.8249850 -86.8470650 2008-06-05T20:06:4");
        add("nmea/gpsbabel-amod.nmea", 4, 3, 0, {amod + "1Z 269.9", amod + "2Z 269.9", amod + "3Z 269.9", amod + "4Z -"});
        add("nmea/gpsd-GPSmap-76S.log", 12, 12, 0);           // 12 RMC/GGA pairs
        add("nmea/gpsd-com-1289.log", 14, 14, 0);             // 14 pairs; the bad checksum is on a GSV
        add("nmea/gpsd-gp-320fw-overflow.log", 20, 20, 0);    // 20 pairs
        add("nmea/gpsd-isync.log", 12, 12, 0);                // 12 pairs
        add("nmea/gpsd-haicom-305N.log", 74, 73, 0);          // 74 RMC each followed by GGA but the last
        // GGA first in each second: it completes the RMC before it, so the last RMC has none
        add("nmea/gpsd-bt-q818.log", 10, 9, 0);
        add("nmea/gpsd-mtk-3301.log", 11, 10, 0);
        add("nmea/gpsd-nd-1005.log", 16, 15, 0);
        // 146 RMC, 138 GGA: eleven RMC are followed by another RMC before any GGA
        add("nmea/gpsd-bundg-zeus-marine.log", 146, 135, 0);
        // 30 RMC, 30 GGA, GGA first, with runs of two and three: 24 RMC are followed by a GGA
        add("nmea/gpsbabel-nmea+ms.txt", 30, 24, 0);
        // 19 pairs; the time fields "222515.x", "222517 ", " 222519", "222521.0 ",
        // "222523.0x" and ".1" are refused (the points keep their position)
        add("nmea/gpsbabel-nmeadatetime.nmea", 19, 19, 6);
        // line 14: all empty (3 errors, no point); line 15: date "2208-1" (1 error); no GGA
        add("nmea/gpsd-april6_2019-rollover.log", 2, 0, 4);
        // 224 RMC: 37 without fix have empty time, date and position (3 errors
        // each, no point); GGA first in each second, so the last point has none
        add("nmea/gpsd-telit-he910.log", 187, 186, 111);
        // RMC without mode field: one error per RMC line, no point
        add("nmea/gpsbabel-track.nmea", 0, 0, 154);
        add("nmea/gpsbabel-1.8.0-gisteq-prefix.generated.nmea", 0, 0, 26);   // "---" dropped, 13 left
        add("nmea/gpsd-eXplorist110.log", 0, 0, 9);
        add("nmea/gpsd-firefly-II.log", 0, 0, 23);
        add("nmea/gpsd-garmin25lp.log", 0, 0, 20);
        add("nmea/gpsd-iTrek.log", 0, 0, 37);
        add("nmea/gpsd-pharos-360.log", 0, 0, 21);
        add("nmea/gpsd-tomtom-mkII.log", 0, 0, 27);
        add("nmea/gpsd-magellan-ec10.log", 0, 0, 38);   // 21 of 13 fields, 17 of 15
        add("nmea/gpsd-navika-100.log", 0, 0, 20);      // 15 fields
        // GGA without checksum (15 fields), beside 13-field RMC in the second
        add("nmea/gpsd-hp58534a.log", 0, 0, 2);
        add("nmea/gpsd-saab-r4.log", 0, 0, 24);
        // no $GPRMC at all: other talkers, GGA only, proprietary only, UTF-16
        add("nmea/gpsbabel-adddate-gga-only.nmea", 0, 0, 0);
        add("nmea/gpsbabel-magellan-pmgnt.log", 0, 0, 0);
        add("nmea/gpsbabel-nmea_utf16_dos.nmea", 0, 0, 0);
        add("nmea/gpsd-beidou-bd.log", 0, 0, 0);
        add("nmea/gpsd-bu353-glonass.log", 0, 0, 0);
        add("nmea/gpsd-humminbird-M37.log", 0, 0, 0);
        add("nmea/gpsd-neo-m8n.log", 0, 0, 0);
        add("nmea/gpsd-nl2008u.log", 0, 0, 0);
        add("nmea/gpsd-rx210.log", 0, 0, 0);
        add("nmea/gpsd-sirfstarv-nmea.log", 0, 0, 0);
        add("nmea/gpsd-ublox-zed-f9p-nmea.log", 0, 0, 0);
        // broken logs
        // 12 RMC of 14 fields make points; after the first comes a GGA with an
        // altitude, after four no GGA, after seven a last GGA with an empty
        // altitude; RMC of 4, 8, 8, 11, 16 and GGA of 14, 23, 23, 29, 29 fields
        // are errors
        add("malformed/gpsd-gp-320fw-coldboot-garbled.log", 12, 1, 10);
        // 11 RMC of 13 fields, and the log ends in a GGA of 9 fields
        add("malformed/gpsd-holux-gm-210.log", 0, 0, 12);
        // the first 89 RMC of the whole log (37 of them void: 111 errors), then
        // one cut to 5 fields
        add("malformed/gpsd-telit-he910.truncated.log", 52, 52, 112);
    }

    void corpusLogs()
    {
        QFETCH(QString, file);
        QFETCH(qsizetype, points);
        QFETCH(qsizetype, withElevation);
        QFETCH(qsizetype, errors);
        QFETCH(QStringList, exactPoints);

        const Imported imported = import(QStringLiteral(HB_CORPUS_DIR "/") + file);
        QCOMPARE(imported.points.size(), points);
        QCOMPARE(imported.pointsWithElevation, withElevation);
        QCOMPARE(imported.errorLog.size(), errors);
        QCOMPARE(imported.logged, imported.errorLog);
        QCOMPARE(imported.tracks, 1);
        QCOMPARE(imported.segments, 1);
        if (!exactPoints.isEmpty())
            QCOMPARE(imported.points, exactPoints);
    }

    // The whole record as another connection to the files sees it (the
    // import source's own fields are the base operation's, tested with it).
    void savedTrackReadsBackFromReopenedStores()
    {
        const QString path = write(rmc("120000", "4807.038", "N", "01131.000", "E", "010123") + "\r\n" + gga("500.0") + "\r\n"
                                   + rmc("120000", "4807.040", "N", "01131.002", "E", "200123") + "\r\n"
                                   + rmc("120001", "", "", "", "", "200123"));
        const ImportLog log;
        const std::shared_ptr<HBNMEAImportOperation> operation = run(path);
        QCOMPARE(operation->errorLog(), (QStringList{line(4, kLatitudeError), line(4, kLongitudeError)}));
        QCOMPARE(log.lines(), operation->errorLog());
        QCOMPARE(operation->currentLine(), 4);
        QVERIFY(operation->trackPoints().isEmpty());

        std::unique_ptr<HBPersistentStoreCoordinator> reopened =
            HBTrackManager::sharedTrackManager()->centralPersistentStoreCoordinator();
        HBManagedObjectContext fresh(HBManagedObjectContext::PrivateQueueConcurrencyType);
        fresh.setPersistentStoreCoordinator(reopened.get());
        fresh.performBlockAndWait([&] {
            const HBImportSource *source = importSourceWithPath(&fresh, path);
            QVERIFY(source);
            QCOMPARE(source->name(), QFileInfo(path).fileName());
            QCOMPARE(source->tracks().size(), 1);
            QVERIFY(source->events().isEmpty());
            QVERIFY(source->waypoints().isEmpty());

            auto *track = static_cast<HBTrack *>(source->tracks().first());
            QCOMPARE(track->name(), QFileInfo(path).fileName());
            QCOMPARE(track->order(), 0);
            QCOMPARE(track->numberOfTrackPoints(), 3);
            QCOMPARE(track->segments().size(), 1);
            HBTrackSegment *segment = track->segments().first();
            QStringList points;
            QList<qint64> orders;
            for (const HBTrackPoint *point : segment->points()) {
                points.append(describe(point));
                orders.append(point->order().value_or(-1));
                QCOMPARE(point->trackSegment(), segment);
            }
            // two ten-day periods and a point without position
            QCOMPARE(points, (QStringList{QStringLiteral("48.117300 11.516667 2023-01-01T12:00:00Z 500.0"),
                                          QStringLiteral("48.117333 11.516700 2023-01-20T12:00:00Z -"),
                                          QStringLiteral("- - 2023-01-20T12:00:01Z -")}));
            QCOMPARE(orders, (QList<qint64>{0, 1, 2}));
        });
    }

    void missingFileStillGetsATrack()
    {
        const QString path = m_home.filePath(QStringLiteral("never written.nmea"));
        const Imported imported = import(path);
        QVERIFY(imported.errorLog.isEmpty());
        QCOMPARE(imported.logged.size(), 1);
        QVERIFY2(imported.logged.first().startsWith(QStringLiteral("NMEA import error: ")), qPrintable(imported.logged.first()));
        QCOMPARE(imported.sources, 1);
        QCOMPARE(imported.tracks, 1);
        QCOMPARE(imported.segments, 1);
        QVERIFY(imported.points.isEmpty());
    }

    // A save that fails is shown to the user and logged; the locks are
    // released and the context reset, so the next import goes through.
    void failedSaveIsShownAndLogged()
    {
        const QString central = HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql");
        QVERIFY(execIn(central, QStringLiteral("CREATE TRIGGER refuseTracks BEFORE INSERT ON HBTrack "
                                                "BEGIN SELECT RAISE(ABORT, 'tracks refused'); END")));
        QList<HBError> shown;
        HBTrackManager::setErrorPresenter([&](const HBError &error) { shown.append(error); });
        const QString path = write(kRMC + "\n" + kRMCWithoutMode);
        const Imported refused = import(path);
        HBTrackManager::setErrorPresenter({});
        QVERIFY(execIn(central, QStringLiteral("DROP TRIGGER refuseTracks")));

        QCOMPARE(shown.size(), 1);
        QVERIFY2(shown.first().detailedErrorsDescription().contains(QStringLiteral("tracks refused")),
                 qPrintable(shown.first().detailedErrorsDescription()));
        QCOMPARE(refused.logged, (QStringList{shown.first().localizedDescription(), shown.first().detailedErrorsDescription(),
                                              QStringLiteral("Error occurred in the NMEA parser trying to save to Core Data"),
                                              line(2, kRMCFields13)}));
        QCOMPARE(refused.sources, 0);
        QCOMPARE(rowsIn(central, QStringLiteral("HBTrack"), QStringLiteral("name = '%1'").arg(QFileInfo(path).fileName())), 0);

        HBManagedObjectContext *root = HBTrackManager::sharedBackgroundThreadTrackManager()->managedObjectContext();
        qsizetype registered = -1;
        root->performBlockAndWait([&] { registered = root->registeredObjectCount(); });
        QCOMPARE(registered, 0);
        bool coordinatorFree = false;
        std::thread other([&] {
            coordinatorFree = root->persistentStoreCoordinator()->tryLock();
            if (coordinatorFree)
                root->persistentStoreCoordinator()->unlock();
        });
        other.join();
        QVERIFY(coordinatorFree);

        const Imported next = import(write(kRMC));
        QCOMPARE(next.points, QStringList{kPoint});
        QCOMPARE(next.logged, QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_HBNMEAImportOperation)
#include "tst_HBNMEAImportOperation.moc"
