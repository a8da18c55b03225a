#include "TemporaryHome.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <optional>

// The hbgps tool as a person runs it, over a home of its own.
class tst_hbgps : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

    struct Run
    {
        int exitCode = -1;
        QString out, err;
        QByteArray outBytes;
        QStringList lines() const { return out.split(u'\n', Qt::SkipEmptyParts); }
    };

    // What import prints: "PATH: STATUS" for each file, then the totals.
    static QStringList importLines(const QList<std::pair<QString, const char *>> &files, const char *totals)
    {
        QStringList lines;
        for (const auto &[path, status] : files)
            lines << path + QStringLiteral(": ") + QLatin1String(status);
        return lines << QLatin1String(totals);
    }

    // The user a run drops to, given by uid and gid.
    using User = std::pair<uid_t, gid_t>;

    static Run hbgpsIn(const QString &home, const QStringList &arguments, std::optional<User> user = std::nullopt)
    {
        QProcess p;
        p.setProcessEnvironment(temporaryHomeEnvironment(home));
        if (user) {
            p.setChildProcessModifier([user] {
                if (setgroups(0, nullptr) != 0 || setgid(user->second) != 0 || setuid(user->first) != 0)
                    _exit(99);
            });
        }
        p.start(QStringLiteral(HB_HBGPS_PATH), arguments);
        Run run;
        if (p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit)
            run.exitCode = p.exitCode();
        run.outBytes = p.readAllStandardOutput();
        run.out = QString::fromUtf8(run.outBytes);
        run.err = QString::fromUtf8(p.readAllStandardError());
        return run;
    }

    Run hbgps(const QStringList &arguments) const { return hbgpsIn(m_home.path(), arguments); }

    QString write(const QString &name, const QByteArray &content) const
    {
        const QString path = m_home.filePath(QStringLiteral("files/") + name);
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        if (f.open(QIODevice::WriteOnly))
            f.write(content);
        return path;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        write(QStringLiteral("walk/fixture.gpx"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<gpx version=\"1.1\" creator=\"test\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n"
              " <wpt lat=\"47.421100\" lon=\"10.985300\"><name>Summit</name></wpt>\n"
              " <trk><name>Walk</name>\n"
              "  <trkseg><trkpt lat=\"47.000001\" lon=\"10.000001\"><ele>500.25</ele><time>2021-05-01T10:00:00Z</time></trkpt>\n"
              "          <trkpt lat=\"47.000101\" lon=\"10.000101\"><time>2021-05-01T10:01:00Z</time></trkpt></trkseg>\n"
              "  <trkseg><trkpt lat=\"47.000201\" lon=\"10.000201\"><time>2021-05-01T10:05:00Z</time></trkpt></trkseg>\n"
              " </trk>\n</gpx>\n");
        write(QStringLiteral("walk/deep/drive.nmea"),
              "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A*6A\n"
              "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\n"
              "$GPRMC,123520,A,4807.040,N,01131.002,E,022.4,084.4,230394,003.1,W,A*6A\n");
        write(QStringLiteral("map.kml"), "<kml/>");
    }

    // A help's first line names the command it is the help of.
    void usageAndExitCodes_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("firstLine");   // null: not looked at
        const auto help = [](const char *command) { return QStringList{QLatin1String(command), QStringLiteral("--help")}; };
        QTest::newRow("tool help") << QStringList{QStringLiteral("--help")} << 0 << "Usage: hbgps COMMAND [OPTIONS]";
        QTest::newRow("import help") << help("import") << 0 << "Usage: hbgps import [options] PATH...";
        QTest::newRow("list help") << help("list") << 0 << "Usage: hbgps list [options]";
        QTest::newRow("export help") << help("export") << 0 << "Usage: hbgps export [options]";
        QTest::newRow("delete help") << help("delete") << 0 << "Usage: hbgps delete [options]";
        QTest::newRow("info help") << help("info") << 0 << "Usage: hbgps info [options]";
        QTest::newRow("tree help") << help("tree") << 0 << "Usage: hbgps tree [options]";
        QTest::newRow("tree with an argument") << QStringList{QStringLiteral("tree"), QStringLiteral("2005")} << 2 << QString();
        QTest::newRow("no command") << QStringList{} << 2 << QString();
        QTest::newRow("unknown command") << QStringList{QStringLiteral("sync")} << 2 << QString();
        QTest::newRow("unknown option") << QStringList{QStringLiteral("list"), QStringLiteral("--colour")} << 2 << QString();
        QTest::newRow("bad date") << QStringList{QStringLiteral("list"), QStringLiteral("--date"), QStringLiteral("2024-13")} << 2
                                  << QString();
        QTest::newRow("list of all") << QStringList{QStringLiteral("list"), QStringLiteral("--all")} << 0 << QString();
        QTest::newRow("two selections")
            << QStringList{QStringLiteral("list"), QStringLiteral("--recent"), QStringLiteral("--date"), QStringLiteral("2024")} << 2
            << QString();
        QTest::newRow("export without file") << QStringList{QStringLiteral("export")} << 2 << QString();
        QTest::newRow("import without path") << QStringList{QStringLiteral("import")} << 2 << QString();
        QTest::newRow("import of nothing there") << QStringList{QStringLiteral("import"), QStringLiteral("/no/such/file.gpx")} << 1
                                                 << QString();
        QTest::newRow("download help") << help("download") << 0 << "Usage: hbgps download [options]";
        const auto download = [](QStringList options) { return QStringList{QStringLiteral("download")} + options; };
        QTest::newRow("download without a file") << download({QStringLiteral("--type"), QStringLiteral("garmin")}) << 2 << QString();
        QTest::newRow("download into a file not .gpx") << download({QStringLiteral("-o"), QStringLiteral("x.txt")}) << 2
                                                       << QString();
        QTest::newRow("download of two receivers")
            << download({QStringLiteral("--type"), QStringLiteral("garmin"), QStringLiteral("--custom"), QStringLiteral("nmea"),
                         QStringLiteral("-o"), QStringLiteral("x.gpx")})
            << 2 << QString();
        QTest::newRow("download of an unknown receiver")
            << download({QStringLiteral("--type"), QStringLiteral("tomtom"), QStringLiteral("-o"), QStringLiteral("x.gpx")}) << 2
            << QString();
        QTest::newRow("download from a volume and a receiver")
            << download({QStringLiteral("--from-volume"), QStringLiteral("/media"), QStringLiteral("-o"), QStringLiteral("x.gpx")})
            << 2 << QString();
        QTest::newRow("delete of an unknown source")
            << QStringList{QStringLiteral("delete"), QStringLiteral("--source"), QStringLiteral("nope.gpx")} << 1 << QString();
    }

    void usageAndExitCodes()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, firstLine);
        const Run run = hbgps(arguments);
        QCOMPARE(run.exitCode, exitCode);
        if (!firstLine.isNull())
            QCOMPARE(run.lines().value(0), firstLine);
    }

    void importListExportDelete()
    {
        const Run first = hbgps({QStringLiteral("import"), m_home.filePath(QStringLiteral("files/walk")),
                                 m_home.filePath(QStringLiteral("files/map.kml"))});
        QCOMPARE(first.exitCode, 0);
        const QString drive = m_home.filePath(QStringLiteral("files/walk/deep/drive.nmea"));
        const QString fixture = m_home.filePath(QStringLiteral("files/walk/fixture.gpx"));
        QCOMPARE(first.lines(), importLines({{drive, "imported: 1 track, 2 points, 0 waypoints"},
                                             {fixture, "imported: 1 track, 3 points, 1 waypoint"},
                                             {m_home.filePath(QStringLiteral("files/map.kml")), "skipped (unknown type)"}},
                                            "2 imported, 0 unchanged, 1 of unknown type"));
        // off a terminal no progress is drawn, and the log stays quiet
        QCOMPARE(first.err, QString());

        const Run again = hbgps({QStringLiteral("import"), m_home.filePath(QStringLiteral("files/walk"))});
        QCOMPARE(again.lines(), importLines({{drive, "skipped (unchanged)"}, {fixture, "skipped (unchanged)"}},
                                            "0 imported, 2 unchanged, 0 of unknown type"));

        const Run json = hbgps({QStringLiteral("list"), QStringLiteral("--json")});
        QCOMPARE(json.exitCode, 0);
        const QJsonArray rows = QJsonDocument::fromJson(json.out.toUtf8()).array();
        QCOMPARE(rows.size(), 3);
        QMap<QString, QJsonObject> byName;
        for (const QJsonValue &v : rows)
            byName.insert(v[QStringLiteral("name")].toString(), v.toObject());
        QCOMPARE(byName[QStringLiteral("Walk")][QStringLiteral("kind")].toString(), QStringLiteral("Track"));
        QCOMPARE(byName[QStringLiteral("Walk")][QStringLiteral("numberOfTrackPoints")].toInt(), 3);
        QCOMPARE(byName[QStringLiteral("Walk")][QStringLiteral("startDate")].toString(), QStringLiteral("2021-05-01T10:00:00Z"));
        QCOMPARE(byName[QStringLiteral("Walk")][QStringLiteral("source")].toString(), QStringLiteral("fixture.gpx"));
        QCOMPARE(byName[QStringLiteral("drive.nmea")][QStringLiteral("numberOfTrackPoints")].toInt(), 2);
        QCOMPARE(byName[QStringLiteral("Summit")][QStringLiteral("kind")].toString(), QStringLiteral("Waypoint"));

        const Run table = hbgps({QStringLiteral("list"), QStringLiteral("--source"), QStringLiteral("fixture.gpx")});
        QCOMPARE(table.lines().last(), QStringLiteral("1 Tracks (3 points), 1 Waypoints"));
        const Run year = hbgps({QStringLiteral("list"), QStringLiteral("--date"), QStringLiteral("1994-03")});
        QCOMPARE(year.lines().last(), QStringLiteral("1 Tracks (2 points), 0 Waypoints"));

        const QString gpx = m_home.filePath(QStringLiteral("out/export.gpx"));
        QDir().mkpath(QFileInfo(gpx).path());
        const Run exported = hbgps({QStringLiteral("export"), QStringLiteral("-o"), gpx, QStringLiteral("--source"),
                                    QStringLiteral("fixture.gpx")});
        QCOMPARE(exported.exitCode, 0);
        QFile file(gpx);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray text = file.readAll();
        for (const char *digits : {"lat=\"47.000001\"", "lon=\"10.000201\"", "<ele>500.25</ele>", "<name>Summit</name>"})
            QVERIFY2(text.contains(digits), digits);
        QCOMPARE(hbgps({QStringLiteral("export"), QStringLiteral("-o"), m_home.filePath(QStringLiteral("no/such/dir/x.gpx"))}).exitCode, 1);

        const Run deleted = hbgps({QStringLiteral("delete"), QStringLiteral("--source"), QStringLiteral("fixture.gpx")});
        QCOMPARE(deleted.exitCode, 0);
        const Run after = hbgps({QStringLiteral("list")});
        QCOMPARE(after.lines().last(), QStringLiteral("1 Tracks (2 points), 0 Waypoints"));
        const Run info = hbgps({QStringLiteral("info")});
        QCOMPARE(info.exitCode, 0);
        QVERIFY(info.out.contains(QStringLiteral("Support folder: ") + m_home.filePath(QStringLiteral("data/Fernwick"))));
        QVERIFY(info.out.contains(QStringLiteral("HBTrackPoint: 2")));
    }

    // Each node with what selecting it lists, in the source list's order:
    // the newest batch, the local days (TZ=UTC here), the files by name.
    void treeShowsWhatEachNodeLists()
    {
        QTemporaryDir home;
        const QStringList files{QStringLiteral(HB_CORPUS_DIR "/gpx/gpsbabel-gdb-sample.gpx"),
                                QStringLiteral(HB_CORPUS_DIR "/tcx/gpsbabel-history.tcx")};
        QCOMPARE(hbgpsIn(home.path(), QStringList{QStringLiteral("import")} + files).exitCode, 0);
        const Run text = hbgpsIn(home.path(), {QStringLiteral("tree")});
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(text.lines(), (QStringList{
                                   "SMART LISTS",
                                   "  Recent Imports: 10 Tracks (1952 points), 9 Waypoints",
                                   "DATE BROWSER",
                                   "  2005: 9 Tracks (747 points), 8 Waypoints",
                                   "    February: 0 Tracks (0 points), 5 Waypoints",
                                   "      26 (Saturday): 0 Tracks (0 points), 5 Waypoints",
                                   "    May: 9 Tracks (747 points), 0 Waypoints",
                                   "      1 (Sunday): 9 Tracks (747 points), 0 Waypoints",
                                   "    June: 0 Tracks (0 points), 2 Waypoints",
                                   "      24 (Friday): 0 Tracks (0 points), 2 Waypoints",
                                   "    November: 0 Tracks (0 points), 1 Waypoints",
                                   "      8 (Tuesday): 0 Tracks (0 points), 1 Waypoints",
                                   "  2008: 1 Tracks (1205 points), 0 Waypoints",
                                   "    August: 1 Tracks (1205 points), 0 Waypoints",
                                   "      21 (Thursday): 1 Tracks (1205 points), 0 Waypoints",
                                   "FILE BROWSER",
                                   "  gpsbabel-gdb-sample.gpx: 9 Tracks (747 points), 9 Waypoints",
                                   "  gpsbabel-history.tcx: 1 Tracks (1205 points), 0 Waypoints",
                               }));

        const Run json = hbgpsIn(home.path(), {QStringLiteral("tree"), QStringLiteral("--json")});
        const QJsonObject trees = QJsonDocument::fromJson(json.outBytes).object();
        QCOMPARE(trees.keys(), (QStringList{"dates", "files", "smart"}));
        const QJsonObject year = trees[QStringLiteral("dates")][1].toObject();
        const QJsonObject day = year[QStringLiteral("months")][0][QStringLiteral("days")][0].toObject();
        QCOMPARE(day, (QJsonObject{{"name", "21 (Thursday)"}, {"day", 21}, {"tracks", 1}, {"points", 1205}, {"waypoints", 0}}));
        QCOMPARE(year[QStringLiteral("year")].toInt(), 2008);
        QCOMPARE(year[QStringLiteral("months")][0][QStringLiteral("month")].toInt(), 8);
        QCOMPARE(trees[QStringLiteral("files")][0].toObject(),
                 (QJsonObject{{"name", "gpsbabel-gdb-sample.gpx"}, {"tracks", 9}, {"points", 747}, {"waypoints", 9}}));
        QCOMPARE(trees[QStringLiteral("smart")][0][QStringLiteral("tracks")].toInt(), 10);
    }

    // What a file that is not what it claims to be gave, in its one line,
    // with the place of the fault; the per-line log only with --verbose.
    void importLinesTellWhatCameIn_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("verboseLogLines");

        const QByteArray rmc = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A*6A\n";
        const QByteArray shortRmc = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A\n";
        QTest::newRow("cut off inside a track point")
            << "cut.gpx" << QByteArray("<gpx><trk><trkseg><trkpt lat=\"1\" lon=\"2\"></trkpt>\n<trkpt lat=\"3\" lon=\"4\"><ele>1")
            << "imported: 1 track, 1 point, 0 waypoints; not valid XML at line 2, column 30: no element found; the "
               "complete elements before it were kept"
            << 1;
        QTest::newRow("a mismatched tag before anything was complete")
            << "mismatched.gpx" << QByteArray("<gpx>\n  <wpt lat=\"5\" lon=\"6\"></trk></gpx>")
            << "imported: 0 tracks, 0 points, 0 waypoints; not valid XML at line 2, column 26: mismatched tag" << 1;
        QTest::newRow("RMC sentences without the mode field")
            << "short.nmea" << QByteArray(rmc + shortRmc + "\n\n" + shortRmc + rmc)
            << "imported: 1 track, 2 points, 0 waypoints; 2 NMEA lines not read in full, the first at line 2: NMEA "
               "string has incorrect number of fields for GPRMC (expected 14, found 13"
            << 2;
        QTest::newRow("counts in thousands") << "long.nmea" << rmc.repeated(1234)
                                             << "imported: 1 track, 1,234 points, 0 waypoints" << 0;
    }

    void importLinesTellWhatCameIn()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        QFETCH(QString, line);
        QFETCH(int, verboseLogLines);
        const QString path = write(QStringLiteral("lines/") + name, content);
        const Run run = hbgps({QStringLiteral("import"), path});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.lines().first(), path + QStringLiteral(": ") + line);
        QCOMPARE(run.err, QString());
        QFile changed(path);   // so that it is imported again
        QVERIFY(changed.open(QIODevice::Append) && changed.write("\n") == 1);
        changed.close();
        const Run verbose = hbgps({QStringLiteral("import"), QStringLiteral("--verbose"), path});
        QCOMPARE(verbose.err.count(QStringLiteral("hb.import: ")), verboseLogLines);
    }

    // An unreadable file or folder is named and not recorded, so that it is
    // imported once it can be read (rather than skipped as unchanged).
    void unreadableFilesAreReportedAndImportedOnceReadable()
    {
        std::optional<User> user;
        // root reads everything: the runs drop to an unprivileged user
        if (geteuid() == 0) {
            const passwd *nobody = getpwnam("nobody");
            if (!nobody)
                QSKIP("running as root without a user \"nobody\" to drop to");
            user = User{nobody->pw_uid, nobody->pw_gid};
        }
        QTemporaryDir home;
        QVERIFY(QFile::setPermissions(home.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
                                                       | QFileDevice::ReadOther | QFileDevice::WriteOther
                                                       | QFileDevice::ExeOther));
        const auto file = [&](const QString &name, const QByteArray &content) {
            const QString path = home.filePath(name);
            QDir().mkpath(QFileInfo(path).path());
            QFile f(path);
            return f.open(QIODevice::WriteOnly) && f.write(content) == content.size() ? path : QString();
        };
        const QString fine = file(QStringLiteral("open/fine.gpx"), "<gpx><wpt lat=\"1\" lon=\"1\"/></gpx>");
        const QString hidden = file(QStringLiteral("open/hidden.gpx"), "<gpx><wpt lat=\"2\" lon=\"2\"/></gpx>");
        const QString inside = file(QStringLiteral("locked/inside.gpx"), "<gpx><wpt lat=\"3\" lon=\"3\"/></gpx>");
        const QString secret = file(QStringLiteral("secret.nmea"),
                                    "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W,A*6A\n");
        const QString locked = QFileInfo(inside).path();
        QVERIFY(QFile::setPermissions(hidden, {}) && QFile::setPermissions(locked, {}) && QFile::setPermissions(secret, {}));
        const QStringList arguments{QStringLiteral("import"), home.filePath(QStringLiteral("open")), locked, secret};

        const Run first = hbgpsIn(home.path(), arguments, user);
        const char *unreadable = "skipped (unreadable: Permission denied)";
        QCOMPARE(first.lines(), importLines({{fine, "imported: 0 tracks, 0 points, 1 waypoint"}, {hidden, unreadable},
                                             {locked, unreadable}, {secret, unreadable}},
                                            "1 imported, 0 unchanged, 0 of unknown type, 3 unreadable"));
        QCOMPARE(first.exitCode, 1);

        const QFileDevice::Permissions readable = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther;
        QVERIFY(QFile::setPermissions(hidden, readable) && QFile::setPermissions(secret, readable)
                && QFile::setPermissions(locked, readable | QFileDevice::ExeOwner | QFileDevice::ExeOther));
        const Run again = hbgpsIn(home.path(), arguments, user);
        const char *oneWaypoint = "imported: 0 tracks, 0 points, 1 waypoint";
        QCOMPARE(again.lines(), importLines({{fine, "skipped (unchanged)"}, {hidden, oneWaypoint}, {inside, oneWaypoint},
                                             {secret, "imported: 1 track, 1 point, 0 waypoints"}},
                                            "3 imported, 1 unchanged, 0 of unknown type"));
        QCOMPARE(again.exitCode, 0);
    }

    // Qt leaves a name that is not UTF-8 out of a folder's listing and
    // cannot open it; such a file is imported all the same, printed as its
    // bytes, and found unchanged the next time.
    void namesThatAreNotUtf8AreImported()
    {
        const QString folder = m_home.filePath(QStringLiteral("files/latin1"));
        QVERIFY(QDir().mkpath(folder));
        const QByteArray name = QFile::encodeName(folder) + "/caf\xe9.gpx";
        const QByteArray content = "<gpx><wpt lat=\"48.5\" lon=\"2.5\"><name>Caf\xc3\xa9</name></wpt></gpx>";
        const int descriptor = ::open(name.constData(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
        QVERIFY(descriptor >= 0);
        // the temporary folder's own removal would not see the file either
        const auto removal = qScopeGuard([&] { ::unlink(name.constData()); });
        QCOMPARE(::write(descriptor, content.constData(), size_t(content.size())), ssize_t(content.size()));
        ::close(descriptor);

        const Run first = hbgps({QStringLiteral("import"), folder});
        QCOMPARE(first.outBytes, name + ": imported: 0 tracks, 0 points, 1 waypoint\n1 imported, 0 unchanged, 0 of unknown type\n");
        const Run again = hbgps({QStringLiteral("import"), folder});
        QCOMPARE(again.outBytes, name + ": skipped (unchanged)\n0 imported, 1 unchanged, 0 of unknown type\n");
    }

    // What cannot be replaced is written into: a rename over a FIFO (or a
    // device) would leave a regular file in its place, and one over
    // /dev/stdout would miss the file standard output goes to.
    void exportWritesIntoWhatIsNotARegularFile_data()
    {
        QTest::addColumn<QString>("target");   // "fifo": a FIFO of the test's
        QTest::addColumn<bool>("stdoutToFile");
        QTest::newRow("a FIFO") << "fifo" << false;
        QTest::newRow("- for standard output") << "-" << false;
        QTest::newRow("/dev/stdout, a pipe") << "/dev/stdout" << false;
        QTest::newRow("/dev/stdout, a file") << "/dev/stdout" << true;
    }

    void exportWritesIntoWhatIsNotARegularFile()
    {
        QFETCH(QString, target);
        QFETCH(bool, stdoutToFile);
        QTemporaryDir dir;
        const QString fifo = dir.filePath(QStringLiteral("fifo"));
        const QString captured = dir.filePath(QStringLiteral("stdout"));
        QVERIFY(::mkfifo(QFile::encodeName(fifo).constData(), 0600) == 0);
        // held open for reading and writing, so that neither side waits for the other
        const int fifoEnd = ::open(QFile::encodeName(fifo).constData(), O_RDWR | O_NONBLOCK);
        QVERIFY(fifoEnd >= 0);
        const auto closing = qScopeGuard([&] { ::close(fifoEnd); });
        QFile(captured).open(QIODevice::WriteOnly);
        struct stat before, after;
        QVERIFY(::stat(QFile::encodeName(captured).constData(), &before) == 0);

        QProcess p;
        p.setProcessEnvironment(temporaryHomeEnvironment(m_home.path()));
        if (stdoutToFile)
            p.setStandardOutputFile(captured, QIODevice::Append);
        p.start(QStringLiteral(HB_HBGPS_PATH), {QStringLiteral("export"), QStringLiteral("-o"), target == "fifo" ? fifo : target});
        QByteArray document;
        // the FIFO holds less than a document: it is drained while the export runs
        const auto drain = [&] {
            char piece[4096];
            for (ssize_t n; (n = ::read(fifoEnd, piece, sizeof piece)) > 0;)
                document.append(piece, n);
        };
        while (p.state() != QProcess::NotRunning) {
            p.waitForFinished(10);
            drain();
        }
        QCOMPARE(p.exitCode(), 0);
        if (target == "fifo") {
            QVERIFY(::stat(QFile::encodeName(fifo).constData(), &after) == 0 && S_ISFIFO(after.st_mode));
        } else if (stdoutToFile) {
            QFile file(captured);
            QVERIFY(file.open(QIODevice::ReadOnly));
            document = file.readAll();
            QVERIFY(::stat(QFile::encodeName(captured).constData(), &after) == 0 && after.st_ino == before.st_ino);
        } else {
            document = p.readAllStandardOutput();
        }
        QVERIFY2(document.startsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<gpx ") && document.endsWith("</gpx>\n"),
                 document.constData());
        QVERIFY(QString::fromUtf8(target == "fifo" ? p.readAllStandardOutput() : p.readAllStandardError()).startsWith(QStringLiteral("Wrote ")));
    }

    // Off a terminal a row fits 80 columns: the long name gives way, the
    // other columns keep their width.
    // gpsbabel reads a file in place of a receiver; FILE stands for the
    // download's file.
    void downloadImportsOrPrintsWhatGPSBabelSaid_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("out");
        QTest::addColumn<QString>("err");   // its start
        const QString log = QStringLiteral(HB_CORPUS_DIR "/nmea/gpsbabel-track.nmea");
        QTest::newRow("Custom nmea from a log")
            << QStringList{QStringLiteral("--custom"), QStringLiteral("nmea"), QStringLiteral("--port"), log}
            << 0 << QStringList{"FILE: imported: 1 track, 154 points, 0 waypoints", "1 imported, 0 unchanged, 0 of unknown type"}
            << QString();
        QTest::newRow("a format gpsbabel does not know")
            << QStringList{QStringLiteral("--custom"), QStringLiteral("nosuch"), QStringLiteral("--port"), log} << 1
            << QStringList{} << "GPSBabel error: Input type 'nosuch' not recognized\n";
        QTest::newRow("a receiver on a port that is not there")
            << QStringList{QStringLiteral("--type"), QStringLiteral("magellan"), QStringLiteral("--port"), QStringLiteral("/dev/nosuch")}
            << 1 << QStringList{} << "GPSBabel error: ";
    }

    void downloadImportsOrPrintsWhatGPSBabelSaid()
    {
        QFETCH(QStringList, options);
        QFETCH(int, exitCode);
        QFETCH(QStringList, out);
        QFETCH(QString, err);
        QTemporaryDir home;
        const QString file = home.filePath(QStringLiteral("Tracks.gpx"));
        const Run run = hbgpsIn(home.path(), QStringList{QStringLiteral("download")} + options + QStringList{QStringLiteral("-o"), file});
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.lines(), out.replaceInStrings(QStringLiteral("FILE"), file));
        QVERIFY2(err.isEmpty() ? run.err.isEmpty() : run.err.startsWith(err), qPrintable(run.err));
    }

    void downloadListsReceiversAndPortsAsTheSheetDoes()
    {
        QTemporaryDir home;
        const Run run = hbgpsIn(home.path(), {QStringLiteral("download"), QStringLiteral("--list")});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = run.lines();
        QCOMPARE(lines.mid(0, 4), (QStringList{"Receivers (--type TYPE, or --custom FORMAT for Custom):", "* garmin    Garmin",
                                              "  m241      Holux", "  magellan  Magellan"}));
        QCOMPARE(lines.value(8), QStringLiteral("  gpsname   Custom"));
        QCOMPARE(lines.value(9), QStringLiteral("Ports (--port PATH):"));
        QVERIFY2(lines.value(10).startsWith(u'*') && lines.last().contains(QRegularExpression(QStringLiteral("^[ *] usb: +Garmin USB$"))),
                 qPrintable(run.out));
    }

    // A receiver mounted as a drive: its GPX file as it is, its FIT files
    // (written by gpsbabel) converted once, a broken one reported.
    void downloadFromAVolumeConvertsFITFilesOnce()
    {
        QTemporaryDir home;
        const QString volume = home.filePath(QStringLiteral("GARMIN"));
        QVERIFY(QDir().mkpath(volume + QStringLiteral("/Garmin/GPX")) && QDir().mkpath(volume + QStringLiteral("/Garmin/Activity")));
        const QString current = volume + QStringLiteral("/Garmin/GPX/Current.gpx");
        const QString ride = volume + QStringLiteral("/Garmin/Activity/RIDE.FIT");
        const QString broken = volume + QStringLiteral("/Garmin/Activity/broken.fit");
        QVERIFY(QFile::copy(QStringLiteral(HB_CORPUS_DIR "/gpx/gpxgo-etrex10.gpx"), current));
        QCOMPARE(QProcess::execute(QStringLiteral("gpsbabel"), {QStringLiteral("-i"), QStringLiteral("gpx"), QStringLiteral("-f"),
                                                                QStringLiteral(HB_CORPUS_DIR "/gpx/gpsbabel-fitwrite-mavi.gpx"),
                                                                QStringLiteral("-o"), QStringLiteral("garmin_fit"), QStringLiteral("-F"), ride}),
                 0);
        QFile junk(broken);
        QVERIFY(junk.open(QIODevice::WriteOnly) && junk.write("not a FIT file") > 0);
        junk.close();
        const QStringList download{QStringLiteral("download"), QStringLiteral("--from-volume"), volume};

        const Run first = hbgpsIn(home.path(), download);
        QCOMPARE(first.exitCode, 1);
        QCOMPARE(first.lines(), importLines({{current, "imported: 1 track, 4 points, 2 waypoints"},
                                             {ride, "imported: 1 track, 64 points, 1 waypoint"}},
                                            "2 imported, 0 unchanged, 0 of unknown type"));
        QVERIFY2(first.err.contains(QStringLiteral("GPSBabel error: ")) && first.err.contains(QStringLiteral("cannot convert ") + broken),
                 qPrintable(first.err));
        QFile::remove(broken);
        const auto gpxOfRide = [&] {
            QDirIterator it(home.filePath(QStringLiteral("cache")), {QStringLiteral("RIDE.gpx")}, QDir::Files, QDirIterator::Subdirectories);
            QFile gpx(it.hasNext() ? it.next() : QString());
            return gpx.open(QIODevice::ReadOnly) ? gpx.readAll() : QByteArray();
        };
        const QByteArray conversion = gpxOfRide();
        QVERIFY(conversion.contains("<trkpt"));

        const Run again = hbgpsIn(home.path(), download);
        QCOMPARE(again.exitCode, 0);
        QCOMPARE(again.lines(), importLines({{current, "skipped (unchanged)"}, {ride, "skipped (unchanged)"}},
                                            "0 imported, 2 unchanged, 0 of unknown type"));
        // not converted again: gpsbabel stamps each GPX file it writes with the time
        QCOMPARE(gpxOfRide(), conversion);

        QFile fit(ride);
        QVERIFY(fit.open(QIODevice::ReadWrite) && fit.setFileTime(QDateTime::currentDateTimeUtc().addDays(1), QFileDevice::FileModificationTime));
        fit.close();
        QCOMPARE(hbgpsIn(home.path(), download).lines().value(1), ride + QStringLiteral(": imported: 1 track, 64 points, 1 waypoint"));
    }

    void longNamesAreCutToFitARow()
    {
        const QString name = QStringLiteral("A very long track name that goes on and on past any terminal's width");
        write(QStringLiteral("cut/long.gpx"), "<gpx><trk><name>" + name.toUtf8()
                                                 + "</name><trkseg><trkpt lat=\"1\" lon=\"1\"><time>2021-06-01T10:00:00Z</time>"
                                                   "</trkpt></trkseg></trk></gpx>");
        QCOMPARE(hbgps({QStringLiteral("import"), m_home.filePath(QStringLiteral("files/cut"))}).exitCode, 0);
        const QStringList lines = hbgps({QStringLiteral("list"), QStringLiteral("--source"), QStringLiteral("long.gpx")}).lines();
        QCOMPARE(lines.value(1), QStringLiteral("Track  ") + name.left(27) + QStringLiteral("\u2026  2021-06-01 10:00:00       1  0.00  long.gpx"));
        QCOMPARE(lines.value(1).size(), 80);
        const QJsonArray rows = QJsonDocument::fromJson(hbgps({QStringLiteral("list"), QStringLiteral("--json")}).out.toUtf8()).array();
        QVERIFY(std::any_of(rows.begin(), rows.end(), [&](const QJsonValue &row) { return row[QStringLiteral("name")] == name; }));
    }
};

QTEST_GUILESS_MAIN(tst_hbgps)
#include "tst_hbgps.moc"
