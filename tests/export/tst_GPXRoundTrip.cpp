#include "ImportTestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <optional>

using namespace importtest;

namespace {

// A GPX document as written, read with Qt's own XML reader (not the
// importer's): the structure of tracks, segments, points, waypoints and
// routes, and for each point and track the texts of its child elements
// that hold text and no elements, by element name (the last one wins).
struct Point
{
    QString lat, lon;   // null when the attribute is missing
    QMap<QString, QString> texts;
};
struct Segment
{
    QList<Point> points;
};
struct Track
{
    QMap<QString, QString> texts;
    QList<Segment> segments;
};
struct Gpx
{
    QList<Track> tracks;
    QList<Point> waypoints;
    QList<QList<Point>> routes;
    int links = 0;   // "link" elements anywhere
};

Point pointAt(const QXmlStreamReader &xml)
{
    const QXmlStreamAttributes attributes = xml.attributes();
    const auto attribute = [&](const char *name) {
        return attributes.hasAttribute(QLatin1String(name)) ? attributes.value(QLatin1String(name)).toString() : QString();
    };
    return {attribute("lat"), attribute("lon"), {}};
}

// Names are taken as written, prefix and all, as the importer takes them.
std::optional<Gpx> readGpx(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.errorString();
        return std::nullopt;
    }
    QXmlStreamReader xml(&file);
    xml.setNamespaceProcessing(false);
    Gpx gpx;
    QStringList open;            // the names of the open elements, the root first
    Point *point = nullptr;      // the open trkpt, wpt or rtept
    Track *track = nullptr;      // the open trk
    QString text;                // gathered since the last start tag
    bool hasText = false;
    qsizetype textDepth = 0;     // depth of the element that text belongs to
    while (!xml.atEnd()) {
        switch (xml.readNext()) {
        case QXmlStreamReader::StartElement: {
            const QString name = xml.name().toString();
            const QString parent = open.isEmpty() ? QString() : open.last();
            if (name == u"trk" && parent == u"gpx") {
                track = &gpx.tracks.emplace_back();
            } else if (name == u"trkseg" && track && parent == u"trk") {
                track->segments.emplaceBack();
            } else if (name == u"trkpt" && track && parent == u"trkseg") {
                point = &track->segments.last().points.emplaceBack(pointAt(xml));
            } else if (name == u"wpt" && parent == u"gpx") {
                point = &gpx.waypoints.emplaceBack(pointAt(xml));
            } else if (name == u"rte" && parent == u"gpx") {
                gpx.routes.emplaceBack();
            } else if (name == u"rtept" && parent == u"rte") {
                point = &gpx.routes.last().emplaceBack(pointAt(xml));
            } else if (name == u"link") {
                ++gpx.links;
            }
            open.append(name);
            text.clear();
            hasText = false;
            textDepth = open.size();
            break;
        }
        case QXmlStreamReader::Characters:
            text += xml.text();
            hasText = true;
            break;
        case QXmlStreamReader::EndElement: {
            const QString name = open.takeLast();
            const QString parent = open.isEmpty() ? QString() : open.last();
            const bool ownText = hasText && textDepth == open.size() + 1;
            if (name == u"trkpt" || name == u"wpt" || name == u"rtept")
                point = nullptr;
            else if (name == u"trk")
                track = nullptr;
            else if (ownText && point && (parent == u"trkpt" || parent == u"wpt" || parent == u"rtept"))
                point->texts.insert(name, text);
            else if (ownText && track && parent == u"trk")
                track->texts.insert(name, text);
            break;
        }
        default:
            break;
        }
    }
    if (xml.hasError()) {
        *error = QStringLiteral("line %1: %2").arg(xml.lineNumber()).arg(xml.errorString());
        return std::nullopt;
    }
    return gpx;
}

// A number as the importer reads it (sign, point, exponent, white space
// around); it keeps the digits of such a text, and drops any other text.
bool isNumber(const QString &text)
{
    static const QRegularExpression number(QStringLiteral("^\\s*[+-]?(\\d+\\.?\\d*|\\.\\d+)([eE][+-]?\\d+)?\\s*$"));
    return number.match(text).hasMatch();
}

// A time text read as the importer reads it: its first 19 characters when
// it has 20 or more (fractions, "Z" and offsets dropped, not applied), as
// "YYYY-MM-DDTHH:MM:SS" or "YYYY-MM-DD HH:MM:SS" in UTC; written back in
// the exporter's form. Nothing when unreadable.
std::optional<QString> importedTime(const QString &text)
{
    const QString kept = text.size() >= 20 ? text.left(19) : text;
    if (kept.size() != 19 || (kept[10] != u'T' && kept[10] != u' '))
        return std::nullopt;
    const QDate date = QDate::fromString(kept.left(10), QStringLiteral("yyyy-MM-dd"));
    const QTime time = QTime::fromString(kept.mid(11), QStringLiteral("HH:mm:ss"));
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
}

// What a point becomes through import and export: of its texts only ele,
// time, name, cmt and desc are kept (a waypoint also keeps sym; magvar,
// src, link, hdop, extensions and the rest are not imported); a "lat",
// "lon" or "ele" that is no number is not stored, and the exporter writes
// a missing position as an empty attribute.
Point imported(const Point &point, bool isWaypoint)
{
    Point result{isNumber(point.lat) ? point.lat : QStringLiteral(""), isNumber(point.lon) ? point.lon : QStringLiteral(""), {}};
    for (const char *key : {"ele", "time", "name", "cmt", "desc", "sym"}) {
        const QString name = QLatin1String(key);
        if (!point.texts.contains(name) || (name == u"sym" && !isWaypoint))
            continue;
        const QString text = point.texts.value(name);
        if (name == u"time") {
            if (const std::optional<QString> time = importedTime(text))
                result.texts.insert(name, *time);
        } else if (name != u"ele" || isNumber(text)) {
            result.texts.insert(name, text);
        }
    }
    return result;
}

// The file as it should come back from import and export, worked out from
// the source with the import rules:
// - routes are not imported;
// - tracks keep their name and desc (a track's cmt is stored, not written);
//   empty segments and tracks without segments stay;
// - points as in imported(); texts are kept untrimmed;
// - no waypoint is dropped as a duplicate: the home holds nothing before
//   the import, and waypoints that repeat within one file are all kept.
Gpx afterRoundTrip(const Gpx &source)
{
    Gpx expected;
    for (const Track &track : source.tracks) {
        Track &t = expected.tracks.emplace_back();
        for (const char *key : {"name", "desc"}) {
            if (track.texts.contains(QLatin1String(key)))
                t.texts.insert(QLatin1String(key), track.texts.value(QLatin1String(key)));
        }
        for (const Segment &segment : track.segments) {
            Segment &s = t.segments.emplace_back();
            for (const Point &point : segment.points)
                s.points.append(imported(point, false));
        }
    }
    for (const Point &waypoint : source.waypoints)
        expected.waypoints.append(imported(waypoint, true));
    return expected;
}

// The model as (place, text) lines; each count comes before what it
// counts, so that a lost or extra element shows where it happens.
using Line = std::pair<QString, QString>;

void addPoint(QList<Line> &lines, const QString &place, const Point &point)
{
    lines.append({place + QStringLiteral(" lat"), point.lat});
    lines.append({place + QStringLiteral(" lon"), point.lon});
    for (auto it = point.texts.cbegin(); it != point.texts.cend(); ++it)
        lines.append({place + u' ' + it.key(), it.value()});
}

QList<Line> linesOf(const Gpx &gpx)
{
    QList<Line> lines{{QStringLiteral("tracks"), QString::number(gpx.tracks.size())}};
    for (qsizetype t = 0; t < gpx.tracks.size(); ++t) {
        const Track &track = gpx.tracks[t];
        const QString trackPlace = QStringLiteral("track %1").arg(t);
        for (auto it = track.texts.cbegin(); it != track.texts.cend(); ++it)
            lines.append({trackPlace + u' ' + it.key(), it.value()});
        lines.append({trackPlace + QStringLiteral(" segments"), QString::number(track.segments.size())});
        for (qsizetype s = 0; s < track.segments.size(); ++s) {
            const QString segmentPlace = trackPlace + QStringLiteral(" segment %1").arg(s);
            const QList<Point> &points = track.segments[s].points;
            lines.append({segmentPlace + QStringLiteral(" points"), QString::number(points.size())});
            for (qsizetype p = 0; p < points.size(); ++p)
                addPoint(lines, segmentPlace + QStringLiteral(" point %1").arg(p), points[p]);
        }
    }
    lines.append({QStringLiteral("waypoints"), QString::number(gpx.waypoints.size())});
    for (qsizetype w = 0; w < gpx.waypoints.size(); ++w)
        addPoint(lines, QStringLiteral("waypoint %1").arg(w), gpx.waypoints[w]);
    lines.append({QStringLiteral("routes"), QString::number(gpx.routes.size())});
    return lines;
}

// The first line where the two differ, as "file: expected <place> "<text>",
// exported <place> "<text>"", or null when they agree.
QString firstDifference(const QString &file, const Gpx &expected, const Gpx &exported)
{
    const QList<Line> want = linesOf(expected), got = linesOf(exported);
    const auto describe = [](const QList<Line> &lines, qsizetype i) {
        return i < lines.size() ? QStringLiteral("%1 \"%2\"").arg(lines[i].first, lines[i].second)
                                : QStringLiteral("nothing more");
    };
    for (qsizetype i = 0; i < std::max(want.size(), got.size()); ++i) {
        if (i >= want.size() || i >= got.size() || want[i] != got[i])
            return QStringLiteral("%1: expected %2, exported %3").arg(file, describe(want, i), describe(got, i));
    }
    return {};
}

// libxml2 holds at most 24 digits of an xsd:decimal and calls a longer one
// invalid, though the schema allows any precision (the corpus has
// coordinates of 32 digits, and the exporter keeps them all). The copy that
// xmllint validates has such numbers cut to 24 digits, toward zero, so that
// each stays within its range.
QByteArray withDecimalsCutForXmllint(const QByteArray &xml)
{
    constexpr qsizetype kDigits = 24;
    static const QRegularExpression decimal(QStringLiteral("(\\d+)\\.(\\d+)"));
    const QString text = QString::fromUtf8(xml);
    QString cut;
    qsizetype from = 0;
    for (const QRegularExpressionMatch &m : decimal.globalMatch(text)) {
        const qsizetype fractionDigits = std::max<qsizetype>(1, kDigits - m.capturedLength(1));
        cut += QStringView(text).sliced(from, m.capturedStart() - from);
        cut += m.captured(1) + u'.' + m.captured(2).left(fractionDigits);
        from = m.capturedEnd();
    }
    cut += QStringView(text).sliced(from);
    return cut.toUtf8();
}

} // namespace

// Every GPX file of the corpus imported into an empty home, exported again
// and compared with the source, element by element: what the importer
// keeps must come back with the digits and texts of the file, and the
// exported file must be valid GPX 1.1.
class tst_GPXRoundTrip : public QObject
{
    Q_OBJECT

    QTemporaryDir m_exports;

private slots:
    // A row per corpus file that the importer reads to its end. Each file
    // is imported and exported by the import probe, in a home of its own,
    // the export in a second run over the reopened stores. A file whose
    // reading stops at an XML fault (the probe reports the parse error) is
    // imported only up to the fault and is no row.
    void exportGivesBackWhatTheImportKept_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("exported");
        QTest::addColumn<QString>("probeFailure");
        QVERIFY(m_exports.isValid());
        const QDir corpus(QStringLiteral(HB_CORPUS_DIR "/gpx"));
        const QStringList files = corpus.entryList({QStringLiteral("*.gpx")}, QDir::Files, QDir::Name);
        QVERIFY(!files.isEmpty());
        for (const QString &file : files) {
            const QTemporaryDir home;
            const QString source = corpus.filePath(file);
            const QString exported = m_exports.filePath(file);
            const ProbeRun import = runProbe(home.path(), {QStringLiteral("import"), source});
            if (import.finished && import.exitCode == 0 && import.output.startsWith(QLatin1String("parse error"))) {
                qInfo().noquote() << file << "is no row:" << import.output;
                continue;
            }
            ProbeRun run = import;
            if (import.finished && import.exitCode == 0)
                run = runProbe(home.path(), {QStringLiteral("export"), source, exported});
            const QString failure = run.finished && run.exitCode == 0
                                        ? QString()
                                        : QStringLiteral("%1: probe failed (finished %2, exit code %3)")
                                              .arg(file).arg(run.finished).arg(run.exitCode);
            QTest::newRow(qPrintable(file)) << source << exported << failure;
        }
    }

    void exportGivesBackWhatTheImportKept()
    {
        QFETCH(QString, source);
        QFETCH(QString, exported);
        QFETCH(QString, probeFailure);
        QVERIFY2(probeFailure.isNull(), qPrintable(probeFailure));
        const QString file = QFileInfo(source).fileName();
        QString error;
        const std::optional<Gpx> original = readGpx(source, &error);
        QVERIFY2(original, qPrintable(file + QStringLiteral(": source not read: ") + error));
        const std::optional<Gpx> back = readGpx(exported, &error);
        QVERIFY2(back, qPrintable(file + QStringLiteral(": export not well formed: ") + error));

        const QString difference = firstDifference(file, afterRoundTrip(*original), *back);
        QVERIFY2(difference.isNull(), qPrintable(difference));

        if (back->links == 0) {
            QFile exportedFile(exported);
            QVERIFY(exportedFile.open(QIODevice::ReadOnly));
            const QString validated = exported + QStringLiteral(".cut");
            QVERIFY(writeFile(validated, withDecimalsCutForXmllint(exportedFile.readAll())));
            QProcess xmllint;
            xmllint.start(QStringLiteral("xmllint"), {QStringLiteral("--noout"), QStringLiteral("--schema"),
                                                      QStringLiteral(HB_GPX_SCHEMA), validated});
            QVERIFY(xmllint.waitForFinished(60000));
            QVERIFY2(xmllint.exitCode() == 0, qPrintable(file + u' ' + QString::fromLocal8Bit(xmllint.readAllStandardError())));
        }
    }
};

QTEST_GUILESS_MAIN(tst_GPXRoundTrip)
#include "tst_GPXRoundTrip.moc"
