#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QStringView>

#include <compare>
#include <cstddef>

class QDataStream;
class QDebug;

// A decimal number that keeps its digits as written, so that a coordinate
// read from a file ("48.117300") is written back digit for digit, while it
// still compares as a number (48.1173 == 48.117300).
//
// The value is sign * coefficient * 10^exponent. The coefficient holds up to
// 38 significant digits; text with more is rounded half to even to 38 digits
// (dropping the rounded-off fraction digits from the scale). The exponent of
// the last kept digit stays within -kExponentLimit..kExponentLimit; text
// beyond that is NaN. A negative zero keeps its sign for writing back and
// equals zero.
class HBDecimal
{
public:
    static constexpr int kMaxDigits = 38;
    static constexpr int kExponentLimit = 6144;

    HBDecimal() = default; // the not-a-number value

    // Accepts an optional sign, digits with an optional point (".5" and "5."
    // too) and an optional exponent ("e-7", "E+3", "e12"), surrounded by
    // optional ASCII white space. Anything else is NaN.
    static HBDecimal fromString(QStringView text);
    // The shortest digits that read back as the same double; NaN and the
    // infinities give NaN.
    static HBDecimal fromDouble(double value);
    static HBDecimal fromInteger(qint64 value);
    // magnitude * 10^-scale, with the sign when negative and the magnitude
    // is not 0, keeping `scale` digits after the point: (false, 48117300, 6)
    // is 48.117300, (false, 0, 3) is 0.000. A scale beyond kExponentLimit is NaN.
    static HBDecimal fromScaledInteger(bool negative, quint64 magnitude, int scale);
    static HBDecimal notANumber() { return {}; }

    bool isNaN() const { return m_isNaN; }
    // The nearest double (correctly rounded); +-inf beyond the double range,
    // NaN for NaN.
    double toDouble() const;
    // Every kept digit, never an exponent, no "+" and no superfluous leading
    // zeros: "007.50" gives "7.50", "1.5e-7" gives "0.00000015", "-0.000"
    // stays "-0.000". "NaN" for NaN.
    QString toString() const;
    // the same text as bytes, for writers that want them
    QByteArray toLatin1() const;
    // The same text, appended: a caller writing many numbers reuses one buffer.
    void appendLatin1(QByteArray &text) const;
    // Digits after the point as kept: 48.117300 -> 6, 12 -> 0, 1.5e-7 -> 8.
    int scale() const;

    // Numeric order; NaN equals itself and orders before every number.
    friend bool operator==(const HBDecimal &a, const HBDecimal &b)
    {
        return (a <=> b) == 0;
    }
    friend std::strong_ordering operator<=>(const HBDecimal &a, const HBDecimal &b);

private:
    using Coefficient = unsigned __int128;
    friend size_t qHash(const HBDecimal &value, size_t seed);
    friend QDataStream &operator<<(QDataStream &out, const HBDecimal &value);
    friend QDataStream &operator>>(QDataStream &in, HBDecimal &value);

    static HBDecimal fromParts(bool negative, Coefficient coefficient, qint64 exponent);
    // The same number with the trailing zeros of the coefficient moved into
    // the exponent, so that equal numbers have equal parts.
    HBDecimal normalized() const;
    int signum() const;

    // Two 64-bit halves rather than one 128-bit integer: the 16-byte
    // alignment of the latter would make the value too big for a QVariant
    // to hold inline, and every point would pay heap allocations for its
    // coordinates.
    struct PackedCoefficient
    {
        quint64 low = 0;
        quint64 high = 0;
        operator Coefficient() const { return (Coefficient(high) << 64) | low; }
        PackedCoefficient &operator=(Coefficient c)
        {
            low = quint64(c);
            high = quint64(c >> 64);
            return *this;
        }
    };
    PackedCoefficient m_coefficient;
    int m_exponent = 0;
    bool m_negative = false;
    bool m_isNaN = true;
};

// Equal numbers hash equal, whatever digits they keep (48.1173, 48.117300).
size_t qHash(const HBDecimal &value, size_t seed = 0);

// Archived as a kind byte (0 NaN, 1 positive, 2 negative), the coefficient
// as two quint64 (high, low) and the exponent as qint32. Reading a record
// that is out of range gives NaN and sets the stream to ReadCorruptData.
QDataStream &operator<<(QDataStream &out, const HBDecimal &value);
QDataStream &operator>>(QDataStream &in, HBDecimal &value);

QDebug operator<<(QDebug debug, const HBDecimal &value);

Q_DECLARE_METATYPE(HBDecimal)
