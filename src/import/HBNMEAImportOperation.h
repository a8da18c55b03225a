#pragma once

#include "import/HBFileImportOperation.h"
#include "platform/HBDecimal.h"

#include <QByteArrayView>
#include <QDateTime>
#include <QLatin1StringView>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <span>
#include <vector>

class HBTrackPoint;

// Reads a log of NMEA 0183 sentences, as GPS receivers and loggers write
// them, into one track of one segment, with the file's import source.
// Only two sentences count: "$GPRMC" makes a point (position and time) and
// "$GPGGA" gives the latest point its altitude. Everything else, other
// talkers ("$GNRMC") included, is passed over without a word.
//
// Positions are kept as decimals with as many digits after the point as
// the field had after its degrees ("4807.038" N is 48.117300), so that the
// receiver's resolution survives. Bad lines and fields go to errorLog()
// ("line 3: ...", counting only lines that hold text) and, at the end, to
// the log, and the report tells how many lines that was and why the first
// was; they never stop the import. A failed save is shown to the user
// through the track manager's error presenter.
//
// Life cycle of one operation (one file, once):
//   1. configured: setFilePath, setImportDate (HBFileImportOperation);
//   2. main(): borrows the background manager's root context, then on its
//      queue parses the file (points inserted as they are read), builds the
//      track and the import source, saves and resets the context, and logs
//      the error log;
//   3. finished: errorLog() and currentLine() stay readable; the points
//      went with the context's reset, so trackPoints() is empty.
// The parse functions are public for the tests; they expect a context
// (parseGPRMC inserts points into it) and run on its queue.
class HBNMEAImportOperation : public HBFileImportOperation
{
    Q_OBJECT

public:
    HBNMEAImportOperation();
    ~HBNMEAImportOperation() override;

    void main() override;

    // Reads the whole file and hands each line that holds text, trimmed,
    // to parseSentence.
    void parseFile();
    // One line: split into fields at every "," and "*", a leading "---"
    // field dropped, then "$GPRMC" or "$GPGGA" parsed and anything else
    // ignored. The bytes are read as ASCII.
    void parseSentence(QByteArrayView line);
    // A recommended-minimum sentence of exactly 14 fields: makes a point
    // when it has a date or a whole position.
    void parseGPRMC(std::span<const QByteArrayView> fields);
    // A fix sentence of exactly 16 fields: its altitude (metres) goes to
    // the latest point; before the first point it is dropped.
    void parseGPGGA(std::span<const QByteArrayView> fields);

    // ddmm.mmm... and N/S, dddmm.mmm... and E/W: signed degrees (south and
    // west negative) with one digit after the point for each character
    // after the degrees, at least 3; nullopt after logging an error.
    std::optional<HBDecimal> decimalNumberFromLatitudeField(QByteArrayView field, QByteArrayView hemisphere);
    std::optional<HBDecimal> decimalNumberFromLongitudeField(QByteArrayView field, QByteArrayView hemisphere);
    // hhmmss[.sss] and ddmmyy, UTC, whole seconds; two-digit years 74..99
    // are 1974..1999, the others 2000..2073. An invalid date after logging
    // an error.
    QDateTime dateFromTimeField(QByteArrayView time, QByteArrayView date);

    // Adds "line <line>: <message>" to the error log.
    void logError(const QString &message, quint64 line);
    // Makes the segment of the points read, its track and the file's import
    // source, saves the context and resets it; false when the save failed
    // (the error has then been shown and logged).
    bool saveImportSource();

    QStringList errorLog() const { return m_errorLog; }
    // The points made so far, in file order, until the save.
    QList<HBTrackPoint *> trackPoints() const { return m_trackPoints; }
    // The number of the line being parsed, counting only lines with text.
    quint64 currentLine() const { return m_currentLine; }

private:
    // Logs an error and answers false when the sentence has another count of fields.
    bool hasFieldCount(std::span<const QByteArrayView> fields, qsizetype expected, QLatin1StringView sentence);
    void noteUnreadLines();
    std::optional<HBDecimal> decimalNumberFromAngleField(QByteArrayView field, qsizetype degreeDigits,
                                                          bool negative, const QString &error);

    QStringList m_errorLog;
    quint64 m_linesWithErrors = 0;
    quint64 m_lastErrorLine = 0;
    QList<HBTrackPoint *> m_trackPoints;
    // the point of the latest accepted "$GPRMC", which a "$GPGGA" completes
    HBTrackPoint *m_currentTrackPoint = nullptr;
    quint64 m_currentLine = 0;
    // the fields of the line being parsed, kept to reuse their storage
    std::vector<QByteArrayView> m_fields;
};
