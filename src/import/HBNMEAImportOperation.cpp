#include "import/HBNMEAImportOperation.h"

#include "model/HBImportSource.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "platform/HBError.h"
#include "platform/HBFileName.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QDate>
#include <QFile>
#include <QFileInfo>
#include <QTime>
#include <QVarLengthArray>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

// The two sentences read, as split at "," and "*" (the checksum after "*"
// is the last field and is never checked):
//
//   $GPRMC  0 name  1 time hhmmss[.sss]  2 status A/V  3 latitude ddmm.mmm
//           4 N/S  5 longitude dddmm.mmm  6 E/W  7 speed (knots)
//           8 course (degrees)  9 date ddmmyy  10 magnetic variation
//           11 its E/W  12 mode indicator  13 checksum             14 fields
//   $GPGGA  0 name  1 time  2 latitude  3 N/S  4 longitude  5 E/W
//           6 fix quality  7 satellites  8 HDOP  9 altitude  10 its unit
//           11 geoid separation  12 its unit  13 age of differential data
//           14 station id  15 checksum                              16 fields
//
// Read are RMC fields 1, 3-6 and 9, and GGA field 9 (in metres whatever
// its unit says). A void fix (status V) is imported like a valid one.
// Sentences are matched by order, not by time: a GGA completes the point
// of the latest accepted RMC, so that a log of RMC/GGA pairs gets every
// altitude whichever of the two its receiver writes first in a second.

namespace {

constexpr qsizetype kGPRMCFieldCount = 14;
constexpr qsizetype kGPGGAFieldCount = 16;
constexpr qsizetype kLatitudeDegreeDigits = 2;
constexpr qsizetype kLongitudeDegreeDigits = 3;
// Digits after the point of a short angle field; longer fields get one
// per character after the degrees.
constexpr qsizetype kMinimumAngleScale = 3;
// RMC fields
constexpr qsizetype kTimeField = 1, kLatitudeField = 3, kNorthSouthField = 4, kLongitudeField = 5,
                    kEastWestField = 6, kDateField = 9;
// GGA field
constexpr qsizetype kAltitudeField = 9;

// 2^64: scaled angles from here up do not fit the decimal's 64-bit digits.
constexpr double kMagnitudeLimit = 18446744073709551616.0;

// 10^scale. Up to 10^22 a double holds the power exactly, and a table
// spares the library call that showed in profiles of large logs.
double powerOfTen(qsizetype scale)
{
    static constexpr auto kExactPowers = [] {
        std::array<double, 23> powers{};
        double power = 1;
        for (double &p : powers) {
            p = power;
            power *= 10;
        }
        return powers;
    }();
    return scale < qsizetype(kExactPowers.size()) ? kExactPowers[size_t(scale)] : std::pow(10.0, double(scale));
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isLineBreak(char c)
{
    return c == '\n' || c == '\r';
}

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Whether a field is a number: an optional sign, digits, and an optional
// point with the fraction's digits ("+12", "-0.5", "222509."). Empty text,
// a lone point and anything with letters or spaces is not.
bool isNumber(QByteArrayView text)
{
    qsizetype i = 0;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    const qsizetype firstDigit = i;
    while (i < text.size() && isDigit(text[i]))
        ++i;
    if (i == firstDigit)
        return false;
    if (i < text.size() && text[i] == '.') {
        ++i;
        while (i < text.size() && isDigit(text[i]))
            ++i;
    }
    return i == text.size();
}

// A piece of a field that isNumber accepted ("48", "-4", "07.038", ".5").
std::optional<double> doubleFromText(QByteArrayView text)
{
    if (!text.isEmpty() && text.front() == '+')
        text = text.sliced(1);
    double value = 0;
    const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc())
        return std::nullopt;
    return value;
}

// The value of an optional sign and the digits after it, 0 without any:
// "07" is 7, "-1" is -1, "1." is 1, ".5" is 0.
int leadingInteger(QByteArrayView text)
{
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        negative = text[i++] == '-';
    int value = 0;
    for (; i < text.size() && isDigit(text[i]); ++i)
        value = value * 10 + (text[i] - '0');
    return negative ? -value : value;
}

bool equalsIgnoringCase(QByteArrayView text, char upper)
{
    return text.size() == 1 && (text.front() == upper || text.front() == char(upper - 'A' + 'a'));
}

// The decimal parser reads UTF-16; an altitude field is short enough to
// widen on the stack.
HBDecimal decimalFromLatin1(QByteArrayView text)
{
    QVarLengthArray<char16_t, 32> wide(text.size());
    std::transform(text.begin(), text.end(), wide.begin(), [](char c) { return char16_t(uchar(c)); });
    return HBDecimal::fromString(QStringView(wide.data(), wide.size()));
}

} // namespace

HBNMEAImportOperation::HBNMEAImportOperation() = default;

HBNMEAImportOperation::~HBNMEAImportOperation() = default;

void HBNMEAImportOperation::main()
{
    if (!hasImportContexts())
        return;
    setSharedManagedObjectContext(importContexts().sharedContext);
    m_trackPoints.clear();
    m_errorLog.clear();
    m_linesWithErrors = 0;
    // Waited for: the operation must not count as finished before its
    // records are saved.
    managedObjectContext()->performBlockAndWait([this] {
        parseFile();
        noteUnreadLines();
        saveImportSource();
        for (const QString &entry : std::as_const(m_errorLog))
            qCWarning(hbImport).noquote() << entry;
    });
}

void HBNMEAImportOperation::parseFile()
{
    // Read once and scanned in place: a logger's file holds millions of lines.
    QFile file;
    QByteArray text;
    QString error;
    if (HBFileName::openForReading(file, filePath(), &error)) {
        text = file.readAll();
        if (file.error() != QFileDevice::NoError)
            error = file.errorString();
    }
    if (!error.isNull()) {
        qCWarning(hbImport).noquote() << QStringLiteral("NMEA import error: %1").arg(error);
        noteProblem(QStringLiteral("cannot read the file: %1").arg(error));
        text.clear();
    }

    // A line ends at CR or LF. After it, white space and further line
    // breaks are skipped, so blank lines and the LF of a CR LF pair are
    // not counted: line numbers are those of the lines with text.
    m_currentLine = 0;
    const char *position = text.constData();
    const char *const end = position + text.size();
    while (position != end) {
        const char *lineEnd = std::find_if(position, end, isLineBreak);
        if (lineEnd != position) {
            ++m_currentLine;
            const QByteArrayView line = QByteArrayView(position, lineEnd).trimmed();
            if (!line.isEmpty())
                parseSentence(line);
        }
        position = std::find_if_not(lineEnd, end, isSpace);
    }
}

void HBNMEAImportOperation::parseSentence(QByteArrayView line)
{
    m_fields.clear();
    qsizetype start = 0;
    for (qsizetype i = 0; i < line.size(); ++i) {
        if (line[i] == ',' || line[i] == '*') {
            m_fields.push_back(line.sliced(start, i - start));
            start = i + 1;
        }
    }
    m_fields.push_back(line.sliced(start));

    std::span<const QByteArrayView> fields(m_fields);
    // some loggers start every line with a field of their own
    if (fields.front() == QByteArrayView("---"))
        fields = fields.subspan(1);
    if (fields.empty())
        return;
    if (fields.front() == QByteArrayView("$GPRMC"))
        parseGPRMC(fields);
    else if (fields.front() == QByteArrayView("$GPGGA"))
        parseGPGGA(fields);
}

void HBNMEAImportOperation::parseGPRMC(std::span<const QByteArrayView> fields)
{
    if (!hasFieldCount(fields, kGPRMCFieldCount, QLatin1StringView("GPRMC")))
        return;
    // All three are read, so that each bad field is reported.
    const QDateTime date = dateFromTimeField(fields[kTimeField], fields[kDateField]);
    const std::optional<HBDecimal> latitude =
        decimalNumberFromLatitudeField(fields[kLatitudeField], fields[kNorthSouthField]);
    const std::optional<HBDecimal> longitude =
        decimalNumberFromLongitudeField(fields[kLongitudeField], fields[kEastWestField]);
    if (!date.isValid() && !(latitude && longitude))
        return;

    auto *point = managedObjectContext()->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
    m_currentTrackPoint = point;
    m_trackPoints.append(point);
    point->setLatitude(latitude);
    point->setLongitude(longitude);
    point->setDate(date);
}

void HBNMEAImportOperation::parseGPGGA(std::span<const QByteArrayView> fields)
{
    if (!hasFieldCount(fields, kGPGGAFieldCount, QLatin1StringView("GPGGA")))
        return;
    // An altitude that is not a number reads as the not-a-number value,
    // which the point keeps as no elevation: a later GGA without altitude
    // clears what an earlier one gave.
    if (m_currentTrackPoint)
        m_currentTrackPoint->setElevation(decimalFromLatin1(fields[kAltitudeField]));
}

bool HBNMEAImportOperation::hasFieldCount(std::span<const QByteArrayView> fields, qsizetype expected,
                                          QLatin1StringView sentence)
{
    if (qsizetype(fields.size()) == expected)
        return true;
    // The text lacks its closing parenthesis; readers of earlier logs match it as it is.
    logError(QStringLiteral("NMEA string has incorrect number of fields for %1 (expected %2, found %3")
                 .arg(sentence)
                 .arg(expected)
                 .arg(fields.size()),
             m_currentLine);
    return false;
}

std::optional<HBDecimal> HBNMEAImportOperation::decimalNumberFromLatitudeField(QByteArrayView field,
                                                                               QByteArrayView hemisphere)
{
    return decimalNumberFromAngleField(field, kLatitudeDegreeDigits, equalsIgnoringCase(hemisphere, 'S'),
                                       QStringLiteral("Latitude field invalid length or NaN."));
}

std::optional<HBDecimal> HBNMEAImportOperation::decimalNumberFromLongitudeField(QByteArrayView field,
                                                                                QByteArrayView hemisphere)
{
    return decimalNumberFromAngleField(field, kLongitudeDegreeDigits, equalsIgnoringCase(hemisphere, 'W'),
                                       QStringLiteral("Longitude field invalid length or NaN."));
}

// Degrees, then minutes with any fraction. The degrees are worked out in
// double precision and rounded once to an integer count of the field's
// last digit, which becomes the decimal exactly: 4807.038 is
// 48117300 * 10^-6. A field whose count does not fit 64 bits (too many
// digits) or comes out negative is refused like a malformed one.
std::optional<HBDecimal> HBNMEAImportOperation::decimalNumberFromAngleField(QByteArrayView field,
                                                                            qsizetype degreeDigits, bool negative,
                                                                            const QString &error)
{
    if (field.size() > degreeDigits + 1 && isNumber(field)) {
        const qsizetype scale = std::max(kMinimumAngleScale, field.size() - degreeDigits);
        const std::optional<double> degrees = doubleFromText(field.first(degreeDigits));
        const std::optional<double> minutes = doubleFromText(field.sliced(degreeDigits));
        if (degrees && minutes) {
            const double scaled = powerOfTen(scale) * (*degrees + *minutes / 60.0);
            if (scaled >= 0 && scaled < kMagnitudeLimit)
                return HBDecimal::fromScaledInteger(negative, quint64(std::round(scaled)), int(scale));
        }
    }
    logError(error, m_currentLine);
    return std::nullopt;
}

QDateTime HBNMEAImportOperation::dateFromTimeField(QByteArrayView time, QByteArrayView date)
{
    if (time.size() < 6 || date.size() != 6 || !isNumber(time) || !isNumber(date)) {
        logError(QStringLiteral("Date or time field invalid length or NaN."), m_currentLine);
        return {};
    }
    const int day = leadingInteger(date.sliced(0, 2));
    const int month = leadingInteger(date.sliced(2, 2));
    const int shortYear = leadingInteger(date.sliced(4, 2));
    const int year = shortYear >= 74 && shortYear <= 99 ? 1900 + shortYear : 2000 + shortYear;
    const int hour = leadingInteger(time.sliced(0, 2));
    const int minute = leadingInteger(time.sliced(2, 2));
    const int second = leadingInteger(time.sliced(4, 2)); // the fraction is dropped
    // Out-of-range parts roll over as in a lenient calendar: month 13 is
    // January of the next year, day 0 the last day of the month before,
    // hour 24 the next day.
    const QDate calendarDate = QDate(year, 1, 1).addMonths(month - 1).addDays(day - 1);
    return QDateTime(calendarDate, QTime(0, 0), Qt::UTC).addSecs(hour * 3600 + minute * 60 + second);
}

void HBNMEAImportOperation::logError(const QString &message, quint64 line)
{
    // a line can be wrong in its date and in its position
    if (m_errorLog.isEmpty() || line != m_lastErrorLine)
        ++m_linesWithErrors;
    m_lastErrorLine = line;
    m_errorLog.append(QStringLiteral("line %1: %2").arg(line).arg(message));
}

// A receiver's log often holds sentences of another form than this reader
// takes (RMC without the mode field, say): one line tells how many lines
// that left out and why the first was, instead of one per line.
void HBNMEAImportOperation::noteUnreadLines()
{
    if (m_errorLog.isEmpty())
        return;
    noteProblem(QStringLiteral("%1 NMEA %2 not read in full, the first at %3")
                    .arg(m_linesWithErrors)
                    .arg(m_linesWithErrors == 1 ? QStringLiteral("line") : QStringLiteral("lines"), m_errorLog.first()));
}

bool HBNMEAImportOperation::saveImportSource()
{
    HBManagedObjectContext *context = managedObjectContext();
    auto *segment = context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
    segment->setPoints(m_trackPoints);
    auto *track = context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
    track->setOrder(0);
    track->setName(QFileInfo(filePath()).fileName());
    track->setSegments({segment});
    track->setImportSource(insertImportSource(context));
    noteKept(1, m_trackPoints.size(), 0);

    // Context first, then coordinator: the order every writer to the
    // coordinator keeps.
    HBPersistentStoreCoordinator *coordinator = context->persistentStoreCoordinator();
    HBError error;
    context->lock();
    coordinator->lock();
    const bool saved = context->save(&error);
    coordinator->unlock();
    context->unlock();
    if (saved) {
        noteSaved();
    } else {
        noteSaveFailure(error);
        if (importContexts().presentError)
            importContexts().presentError(error);
        // the log's wording is the system's own, kept on purpose
        error.log(hbImport(), QStringLiteral("Error occurred in the NMEA parser trying to save to Core Data"));
    }
    context->reset();
    m_trackPoints.clear();
    m_currentTrackPoint = nullptr;
    return saved;
}
