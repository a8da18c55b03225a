#include "platform/HBDecimal.h"

#include <QVariant>

#include <QDataStream>
#include <QDebug>
#include <QHashFunctions>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>

// A point holds several decimals; each must fit inside its QVariant.
static_assert(QVariant::Private::CanUseInternalSpace<HBDecimal>);

namespace {

using Coefficient = unsigned __int128;

constexpr std::array<Coefficient, HBDecimal::kMaxDigits + 1> powersOfTen()
{
    std::array<Coefficient, HBDecimal::kMaxDigits + 1> powers{};
    Coefficient power = 1;
    for (auto &p : powers) {
        p = power;
        power *= 10;
    }
    return powers;
}
constexpr auto kPowersOfTen = powersOfTen();
constexpr Coefficient kCoefficientLimit = kPowersOfTen[HBDecimal::kMaxDigits];

// Large enough that no exponent text can overflow qint64 on its way to the
// range check, however many digits it has.
constexpr qint64 kExponentTextSaturation = qint64(1) << 40;

bool isAsciiSpace(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\v' || c == u'\f' || c == u'\r';
}

QStringView trimmedAscii(QStringView text)
{
    while (!text.isEmpty() && isAsciiSpace(text.front()))
        text = text.sliced(1);
    while (!text.isEmpty() && isAsciiSpace(text.back()))
        text.chop(1);
    return text;
}

int digitValue(QChar c)
{
    return c >= u'0' && c <= u'9' ? c.unicode() - u'0' : -1;
}

// Collects the significant digits of a number as they are read, keeping at
// most kMaxDigits and remembering what the dropped ones need for rounding.
class DigitCollector
{
public:
    void add(int digit)
    {
        if (m_kept == 0 && digit == 0)
            return; // a leading zero carries no value
        // Coordinates have fewer digits than 64 bits hold, where a step is
        // one multiplication instead of a 128-bit one.
        if (m_kept < kSmallDigits) {
            m_small = m_small * 10 + quint64(digit);
            ++m_kept;
            return;
        }
        if (m_kept < HBDecimal::kMaxDigits) {
            m_coefficient = coefficient() * 10 + Coefficient(digit);
            ++m_kept;
            return;
        }
        if (m_dropped == 0)
            m_roundingDigit = digit;
        else
            m_sticky = m_sticky || digit != 0;
        ++m_dropped;
    }

    struct Rounded
    {
        Coefficient coefficient;
        qint64 exponentShift; // how many digits were dropped from the end
    };

    Rounded rounded() const
    {
        if (m_dropped == 0)
            return {coefficient(), 0};
        const bool odd = (m_coefficient & 1) != 0;
        const bool up = m_roundingDigit > 5 || (m_roundingDigit == 5 && (m_sticky || odd));
        const Coefficient coefficient = m_coefficient + (up ? 1 : 0);
        if (coefficient == kCoefficientLimit) // 99...9 rounded up to one digit more
            return {coefficient / 10, m_dropped + 1};
        return {coefficient, m_dropped};
    }

private:
    static constexpr int kSmallDigits = 19;   // 10^19 - 1 fits in 64 bits

    Coefficient coefficient() const { return m_kept <= kSmallDigits ? Coefficient(m_small) : m_coefficient; }

    quint64 m_small = 0;         // the first kSmallDigits kept digits
    Coefficient m_coefficient = 0;   // all kept digits, once there are more
    int m_kept = 0;
    qint64 m_dropped = 0;
    int m_roundingDigit = 0;
    bool m_sticky = false;
};

// The decimal digits of a coefficient, without a heap allocation.
class Digits
{
public:
    explicit Digits(Coefficient coefficient)
    {
        // Coordinates fit in 64 bits, where division is a few cycles
        // instead of a library call per digit.
        if (coefficient <= std::numeric_limits<quint64>::max()) {
            quint64 small = quint64(coefficient);
            do {
                m_text[--m_first] = char('0' + int(small % 10));
                small /= 10;
            } while (small != 0);
            return;
        }
        do {
            m_text[--m_first] = char('0' + int(coefficient % 10));
            coefficient /= 10;
        } while (coefficient != 0);
    }
    std::string_view view() const { return {m_text.data() + m_first, m_text.size() - m_first}; }

private:
    std::array<char, HBDecimal::kMaxDigits> m_text;
    size_t m_first = HBDecimal::kMaxDigits;
};

int digitCount(Coefficient coefficient)
{
    int count = 1;
    while (count <= HBDecimal::kMaxDigits && coefficient >= kPowersOfTen[count])
        ++count;
    return count;
}

// Reads an exponent's optional sign and digits; nullopt when there are no digits.
std::optional<qint64> readExponent(QStringView text, qsizetype &i)
{
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
        negative = text[i++] == u'-';
    const qsizetype firstDigit = i;
    qint64 value = 0;
    for (int d; i < text.size() && (d = digitValue(text[i])) >= 0; ++i)
        value = std::min(value * 10 + d, kExponentTextSaturation);
    if (i == firstDigit)
        return std::nullopt;
    return negative ? -value : value;
}

} // namespace

HBDecimal HBDecimal::fromParts(bool negative, Coefficient coefficient, qint64 exponent)
{
    if (coefficient == 0 && exponent > 0)
        exponent = 0; // "0e5" is written as "0", not with five more zeros
    if (coefficient >= kCoefficientLimit || exponent < -kExponentLimit || exponent > kExponentLimit)
        return {};
    HBDecimal value;
    value.m_isNaN = false;
    value.m_negative = negative;
    value.m_coefficient = coefficient;
    value.m_exponent = int(exponent);
    return value;
}

HBDecimal HBDecimal::fromString(QStringView text)
{
    text = trimmedAscii(text);
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
        negative = text[i++] == u'-';

    DigitCollector collector;
    qint64 mantissaDigits = 0;
    qint64 fractionDigits = 0;
    bool sawPoint = false;
    for (; i < text.size(); ++i) {
        const int digit = digitValue(text[i]);
        if (digit >= 0) {
            collector.add(digit);
            ++mantissaDigits;
            fractionDigits += sawPoint ? 1 : 0;
        } else if (text[i] == u'.' && !sawPoint) {
            sawPoint = true;
        } else {
            break;
        }
    }
    if (mantissaDigits == 0)
        return {};

    qint64 exponent = 0;
    if (i < text.size() && (text[i] == u'e' || text[i] == u'E')) {
        const std::optional<qint64> written = readExponent(text, ++i);
        if (!written)
            return {};
        exponent = *written;
    }
    if (i != text.size())
        return {};

    const auto [coefficient, exponentShift] = collector.rounded();
    return fromParts(negative, coefficient, exponent - fractionDigits + exponentShift);
}

HBDecimal HBDecimal::fromDouble(double value)
{
    if (!std::isfinite(value))
        return {};
    char text[32];
    const auto result = std::to_chars(std::begin(text), std::end(text), value);
    return fromString(QString::fromLatin1(text, result.ptr - text));
}

HBDecimal HBDecimal::fromInteger(qint64 value)
{
    // Through the unsigned type, so that the most negative value has a magnitude.
    const quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    return fromParts(value < 0, magnitude, 0);
}

HBDecimal HBDecimal::fromScaledInteger(bool negative, quint64 magnitude, int scale)
{
    return fromParts(negative && magnitude != 0, magnitude, -qint64(scale));
}

double HBDecimal::toDouble() const
{
    if (m_isNaN)
        return std::numeric_limits<double>::quiet_NaN();
    // A coefficient below 2^53 and a power of ten up to 10^22 are both exact
    // doubles, and one IEEE division or multiplication of exact operands is
    // rounded correctly: the same double as the text conversion below, at a
    // fraction of its cost. Coordinates with up to 15 digits take this way.
    static constexpr double exactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                                  1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    constexpr quint64 exactIntegers = quint64(1) << 53;
    if (m_coefficient.high == 0 && m_coefficient.low <= exactIntegers && m_exponent >= -22 && m_exponent <= 22) {
        const double coefficient = double(m_coefficient.low);
        const double magnitude = m_exponent < 0 ? coefficient / exactPowersOfTen[-m_exponent]
                                                : coefficient * exactPowersOfTen[m_exponent];
        return m_negative ? -magnitude : magnitude;
    }
    // Integer digits and an exponent: no decimal point, so no locale.
    char text[HBDecimal::kMaxDigits + 16];
    const Digits coefficientDigits(m_coefficient);
    const std::string_view digits = coefficientDigits.view();
    char *end = std::copy(digits.begin(), digits.end(), text);
    *end++ = 'e';
    end = std::to_chars(end, std::end(text), m_exponent).ptr;
    double magnitude = 0;
    const auto result = std::from_chars(text, end, magnitude);
    if (result.ec == std::errc::result_out_of_range) {
        const bool tooLarge = qsizetype(digits.size()) + m_exponent > 0;
        magnitude = tooLarge ? std::numeric_limits<double>::infinity() : 0.0;
    }
    return m_negative ? -magnitude : magnitude;
}

QString HBDecimal::toString() const
{
    return QString::fromLatin1(toLatin1());
}

QByteArray HBDecimal::toLatin1() const
{
    QByteArray text;
    appendLatin1(text);
    return text;
}

// Sized first and written in place: the exporter and the stores write
// three numbers for each of a million points.
void HBDecimal::appendLatin1(QByteArray &text) const
{
    if (m_isNaN) {
        text += "NaN";
        return;
    }
    const Digits coefficientDigits(m_coefficient);
    const std::string_view digits = coefficientDigits.view();
    const qsizetype count = qsizetype(digits.size());
    const qsizetype integerDigits = count + std::min(0, m_exponent);
    qsizetype length = m_negative ? 1 : 0;
    if (m_exponent >= 0)
        length += count + m_exponent;
    else if (integerDigits <= 0)
        length += 2 - integerDigits + count;   // "0." and the zeros after the point
    else
        length += count + 1;
    const qsizetype start = text.size();
    text.resize(start + length);
    char *to = text.data() + start;
    if (m_negative)
        *to++ = '-';
    if (m_exponent >= 0) {
        to = std::copy(digits.begin(), digits.end(), to);
        std::fill_n(to, m_exponent, '0');
    } else if (integerDigits <= 0) {
        *to++ = '0';
        *to++ = '.';
        to = std::fill_n(to, -integerDigits, '0');
        std::copy(digits.begin(), digits.end(), to);
    } else {
        to = std::copy_n(digits.begin(), integerDigits, to);
        *to++ = '.';
        std::copy(digits.begin() + integerDigits, digits.end(), to);
    }
}

int HBDecimal::scale() const
{
    return m_isNaN ? 0 : std::max(0, -m_exponent);
}

HBDecimal HBDecimal::normalized() const
{
    HBDecimal value = *this;
    if (value.m_coefficient == 0) {
        value.m_exponent = 0;
        value.m_negative = false;
        return value;
    }
    while (value.m_coefficient % 10 == 0) {
        value.m_coefficient = value.m_coefficient / 10;
        ++value.m_exponent;
    }
    return value;
}

int HBDecimal::signum() const
{
    if (m_coefficient == 0)
        return 0;
    return m_negative ? -1 : 1;
}

std::strong_ordering operator<=>(const HBDecimal &a, const HBDecimal &b)
{
    if (a.isNaN() || b.isNaN())
        return !a.isNaN() <=> !b.isNaN();
    if (const auto bySign = a.signum() <=> b.signum(); bySign != 0 || a.signum() == 0)
        return bySign;
    // A file's coordinates have a few decimals more or fewer: brought to
    // the same exponent, coefficients of 64 bits compare in 128 without
    // overflowing, and without taking their trailing zeros off first.
    const int shift = a.m_exponent - b.m_exponent;
    constexpr int kMostShiftIn128Bits = 18;
    if (shift == 0 || (std::abs(shift) <= kMostShiftIn128Bits && a.m_coefficient.high == 0 && b.m_coefficient.high == 0)) {
        const Coefficient x = Coefficient(a.m_coefficient) * kPowersOfTen[std::max(shift, 0)];
        const Coefficient y = Coefficient(b.m_coefficient) * kPowersOfTen[std::max(-shift, 0)];
        const auto byMagnitude = x <=> y;
        return a.m_negative ? 0 <=> byMagnitude : byMagnitude;
    }

    const HBDecimal x = a.normalized();
    const HBDecimal y = b.normalized();
    // Magnitudes first by the position of the leading digit, then digit by
    // digit with both coefficients brought to the smaller exponent. The
    // scaled coefficient keeps at most kMaxDigits digits, because both
    // leading digits sit at the same position.
    const int xLead = digitCount(x.m_coefficient) + x.m_exponent;
    const int yLead = digitCount(y.m_coefficient) + y.m_exponent;
    auto byMagnitude = xLead <=> yLead;
    if (byMagnitude == 0) {
        const int exponent = std::min(x.m_exponent, y.m_exponent);
        byMagnitude = x.m_coefficient * kPowersOfTen[x.m_exponent - exponent]
                <=> y.m_coefficient * kPowersOfTen[y.m_exponent - exponent];
    }
    return a.m_negative ? 0 <=> byMagnitude : byMagnitude;
}

size_t qHash(const HBDecimal &value, size_t seed)
{
    if (value.isNaN())
        return qHash(-1, seed);
    const HBDecimal n = value.normalized();
    return qHashMulti(seed, n.m_negative, quint64(n.m_coefficient >> 64), quint64(n.m_coefficient),
                      n.m_exponent);
}

QDataStream &operator<<(QDataStream &out, const HBDecimal &value)
{
    const quint8 kind = value.isNaN() ? 0 : (value.m_negative ? 2 : 1);
    return out << kind << quint64(value.m_coefficient >> 64) << quint64(value.m_coefficient)
               << qint32(value.m_exponent);
}

QDataStream &operator>>(QDataStream &in, HBDecimal &value)
{
    quint8 kind = 0;
    quint64 high = 0;
    quint64 low = 0;
    qint32 exponent = 0;
    in >> kind >> high >> low >> exponent;
    value = {};
    if (in.status() != QDataStream::Ok || kind == 0)
        return in;
    const auto coefficient = (HBDecimal::Coefficient(high) << 64) | low;
    value = HBDecimal::fromParts(kind == 2, coefficient, exponent);
    if (kind > 2 || value.isNaN()) {
        value = {};
        in.setStatus(QDataStream::ReadCorruptData);
    }
    return in;
}

QDebug operator<<(QDebug debug, const HBDecimal &value)
{
    QDebugStateSaver saver(debug);
    debug.nospace() << "HBDecimal(" << value.toString() << ')';
    return debug;
}
