#include "platform/HBDecimal.h"

#include <QBuffer>
#include <QDataStream>
#include <QSet>
#include <QRandomGenerator>
#include <QTest>

#include <bit>
#include <cstdlib>
#include <QVariant>

#include <cmath>
#include <limits>

namespace {

HBDecimal decimal(const QString &text)
{
    return HBDecimal::fromString(text);
}

int orderOf(std::strong_ordering ordering)
{
    return ordering < 0 ? -1 : (ordering > 0 ? 1 : 0);
}

// 38 significant digits, the most a value keeps.
const QString kFullDigits = QStringLiteral("12345678901234567890123456789012345678");

} // namespace

class tst_HBDecimal : public QObject
{
    Q_OBJECT

private slots:
    void readsAndWritesBackEveryDigit_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("written");
        QTest::addColumn<int>("scale");

        QTest::newRow("trailing zeros kept") << "48.117300" << "48.117300" << 6;
        QTest::newRow("integer") << "12" << "12" << 0;
        QTest::newRow("negative exponent") << "1.5e-7" << "0.00000015" << 8;
        QTest::newRow("positive exponent") << "1.5e3" << "1500" << 0;
        QTest::newRow("exponent with plus") << "1E+2" << "100" << 0;
        QTest::newRow("exponent inside fraction") << "123.456e1" << "1234.56" << 2;
        QTest::newRow("negative mantissa and exponent") << "-12.5e-1" << "-1.25" << 2;
        QTest::newRow("leading zeros") << "007.50" << "7.50" << 2;
        QTest::newRow("no integer digits") << ".5" << "0.5" << 1;
        QTest::newRow("no fraction digits") << "5." << "5" << 0;
        QTest::newRow("plus sign") << "+3.25" << "3.25" << 2;
        QTest::newRow("negative zero") << "-0.000" << "-0.000" << 3;
        QTest::newRow("zero with exponent") << "0e5" << "0" << 0;
        QTest::newRow("small fraction") << "0.00120" << "0.00120" << 5;
        QTest::newRow("white space around") << "  48.1 \n" << "48.1" << 1;
        QTest::newRow("tabs and carriage return") << "\t-7\r\n" << "-7" << 0;
        QTest::newRow("19 digits") << "-9999999999999999999" << "-9999999999999999999" << 0;
        QTest::newRow("20 digits, past 64 bits") << "18446744073709551616.5" << "18446744073709551616.5" << 1;
        QTest::newRow("38 digits") << "0." + kFullDigits << "0." + kFullDigits << 38;
        QTest::newRow("smallest exponent") << "1e-6144" << "0." + QString(6143, u'0') + "1" << 6144;
    }

    void readsAndWritesBackEveryDigit()
    {
        QFETCH(QString, text);
        QFETCH(QString, written);
        QFETCH(int, scale);

        const HBDecimal value = decimal(text);
        QVERIFY(!value.isNaN());
        QCOMPARE(value.toString(), written);
        QCOMPARE(value.scale(), scale);
        // appended after other text, as writers reuse one buffer
        QByteArray appended("lat=");
        value.appendLatin1(appended);
        QCOMPARE(appended, "lat=" + written.toLatin1());
        // What is written reads back as the same digits.
        QCOMPARE(decimal(written).toString(), written);
    }

    void rejectsWhatIsNotADecimalNumber_data()
    {
        QTest::addColumn<QString>("text");

        QTest::newRow("empty") << "";
        QTest::newRow("only space") << "  ";
        QTest::newRow("only minus") << "-";
        QTest::newRow("only plus") << "+";
        QTest::newRow("only point") << ".";
        QTest::newRow("two points") << "1.2.3";
        QTest::newRow("letters") << "abc";
        QTest::newRow("hexadecimal") << "0x10";
        QTest::newRow("exponent without digits") << "1e";
        QTest::newRow("exponent with sign only") << "1e+";
        QTest::newRow("exponent without mantissa") << "e5";
        QTest::newRow("fractional exponent") << "1e5.5";
        QTest::newRow("inf") << "inf";
        QTest::newRow("nan") << "nan";
        QTest::newRow("NaN as written") << "NaN";
        QTest::newRow("two signs") << "--1";
        QTest::newRow("space inside") << "1 2";
        QTest::newRow("decimal comma") << "1,5";
        QTest::newRow("arabic-indic digits") << QString::fromUtf8("\u0661\u0662");
        QTest::newRow("no-break space is not ASCII space") << QString::fromUtf8("\u00a048");
        QTest::newRow("exponent too large") << "1e6145";
        QTest::newRow("exponent too small") << "1e-6145";
        QTest::newRow("exponent overflowing any integer") << "1e99999999999999999999999";
    }

    void rejectsWhatIsNotADecimalNumber()
    {
        QFETCH(QString, text);

        const HBDecimal value = decimal(text);
        QVERIFY(value.isNaN());
        QCOMPARE(value.toString(), QStringLiteral("NaN"));
        QVERIFY(std::isnan(value.toDouble()));
    }

    void roundsHalfToEvenBeyondTheKeptDigits_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("written");

        const QString kept = "0." + kFullDigits;      // ends in ...78, even
        const QString odd = "0." + kFullDigits.chopped(1) + "7";
        QTest::newRow("half, even stays") << kept + "5" << kept;
        QTest::newRow("half, odd rounds up") << odd + "5" << kept;
        QTest::newRow("above half") << kept + "51" << kept.chopped(1) + "9";
        QTest::newRow("half with a later digit") << kept + "500001" << kept.chopped(1) + "9";
        QTest::newRow("below half") << kept + "49999" << kept;
        QTest::newRow("carry into a new digit") << "0." + QString(38, u'9') + "5" << "1." + QString(37, u'0');
        QTest::newRow("leading zeros are not digits kept")
            << "-0.000" + kFullDigits << "-0.000" + kFullDigits;
        QTest::newRow("integer digits") << kFullDigits + "9" << kFullDigits.chopped(1) + "90";
    }

    void roundsHalfToEvenBeyondTheKeptDigits()
    {
        QFETCH(QString, text);
        QFETCH(QString, written);

        QCOMPARE(decimal(text).toString(), written);
    }

    void keepsLongIntegersWithTrailingZeros()
    {
        const QString text = "1" + QString(5000, u'0');
        QCOMPARE(decimal(text).toString(), text);
        QCOMPARE(decimal(text), decimal("1e5000"));
    }

    void comparesAsNumbers_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("order");

        QTest::newRow("trailing zeros") << "48.1173" << "48.117300" << 0;
        QTest::newRow("exponent against digits") << "1.5e3" << "1500.0" << 0;
        QTest::newRow("negative zero") << "-0.0" << "0" << 0;
        QTest::newRow("negative zero with exponent") << "-0e-3" << "0.000" << 0;
        QTest::newRow("NaN equals NaN") << "nan" << "x" << 0;
        QTest::newRow("NaN before negative") << "NaN" << "-1e6000" << -1;
        QTest::newRow("NaN before zero") << "" << "0" << -1;
        QTest::newRow("as many decimals") << "48.117300" << "48.117299" << 1;
        QTest::newRow("as many decimals, negative") << "-48.117300" << "-48.117299" << -1;
        QTest::newRow("as many decimals, equal") << "-0.500" << "-000.500" << 0;
        QTest::newRow("more decimals, larger") << "48.11730001" << "48.1173" << 1;
        QTest::newRow("more decimals, smaller") << "-48.11730001" << "-48.1173" << -1;
        QTest::newRow("18 decimals more") << "1.000000000000000001" << "1" << 1;
        QTest::newRow("19 decimals more") << "1.0000000000000000001" << "1" << 1;
        QTest::newRow("largest 64-bit coefficients, 18 decimals apart")
            << "18446744073709551615" << "18.446744073709551615" << 1;
        QTest::newRow("38 digits against 38 digits, 17 of them decimals")
            << kFullDigits << "999999999999999999999.99999999999999999" << 1;
        QTest::newRow("longer fraction smaller") << "0.1" << "0.09" << 1;
        QTest::newRow("negative reverses") << "-0.1" << "-0.09" << -1;
        QTest::newRow("sign first") << "-5" << "3" << -1;
        QTest::newRow("zero against negative") << "0" << "-0.0001" << 1;
        QTest::newRow("more integer digits") << "10" << "9.99" << 1;
        QTest::newRow("leading digit position") << "1e10" << "9999999999" << 1;
        QTest::newRow("tiny against zero") << "1e-6144" << "0" << 1;
        QTest::newRow("last of 38 digits") << kFullDigits << kFullDigits.chopped(1) + "9" << -1;
        QTest::newRow("38 digits against the exponent form")
            << kFullDigits + "00" << "0." + kFullDigits + "e40" << 0;
        QTest::newRow("far apart exponents") << "1e6000" << "1e-6000" << 1;
    }

    void comparesAsNumbers()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, order);

        const HBDecimal x = decimal(a);
        const HBDecimal y = decimal(b);
        QCOMPARE(orderOf(x <=> y), order);
        QCOMPARE(orderOf(y <=> x), -order);
        QCOMPARE(x == y, order == 0);
        QCOMPARE(x < y, order < 0);
        if (order == 0)
            QCOMPARE(qHash(x, 7), qHash(y, 7));
    }

    void fromDoubleGivesTheShortestRoundTrip_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("written");

        QTest::newRow("0.1") << 0.1 << "0.1";
        QTest::newRow("latitude") << 48.117300 << "48.1173";
        QTest::newRow("small") << 1e-7 << "0.0000001";
        QTest::newRow("negative") << -2.5 << "-2.5";
        QTest::newRow("negative zero") << -0.0 << "-0";
        QTest::newRow("large integer") << 1e22 << "10000000000000000000000";
        QTest::newRow("seventeen digits") << 0.30000000000000004 << "0.30000000000000004";
        QTest::newRow("largest double") << std::numeric_limits<double>::max()
                                        << "17976931348623157" + QString(292, u'0');
        QTest::newRow("smallest subnormal") << std::numeric_limits<double>::denorm_min()
                                            << "0." + QString(323, u'0') + "5";
    }

    void fromDoubleGivesTheShortestRoundTrip()
    {
        QFETCH(double, value);
        QFETCH(QString, written);

        const HBDecimal converted = HBDecimal::fromDouble(value);
        QCOMPARE(converted.toString(), written);
        QCOMPARE(converted.toDouble(), value);
        QCOMPARE(std::signbit(converted.toDouble()), std::signbit(value));
    }

    void fromDoubleOfNonFiniteIsNaN()
    {
        QVERIFY(HBDecimal::fromDouble(std::numeric_limits<double>::quiet_NaN()).isNaN());
        QVERIFY(HBDecimal::fromDouble(std::numeric_limits<double>::infinity()).isNaN());
        QVERIFY(HBDecimal::fromDouble(-std::numeric_limits<double>::infinity()).isNaN());
    }

    void toDoubleIsCorrectlyRounded_data()
    {
        // The expected values are C++ literals of the same digits, which the
        // compiler rounds correctly.
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("value");

        QTest::newRow("latitude") << "48.117300" << 48.117300;
        QTest::newRow("2^53, ten to the -22") << "9007199254740992e-22" << 9007199254740992e-22;
        QTest::newRow("2^53 + 1, ten to the -22") << "9007199254740993e-22" << 9007199254740993e-22;
        QTest::newRow("ten to the 22") << "7e22" << 7e22;
        QTest::newRow("ten to the 23") << "7e23" << 7e23;
        QTest::newRow("ten to the -23") << "7e-23" << 7e-23;
        QTest::newRow("negative zero") << "-0.000" << -0.0;
        QTest::newRow("tenth") << "0.1" << 0.1;
        QTest::newRow("exponent") << "-1.5e-7" << -1.5e-7;
        QTest::newRow("halfway between doubles, to even") << "9007199254740993" << 9007199254740993.0;
        QTest::newRow("just above halfway")
            << "9007199254740993.00000000000000000001" << 9007199254740994.0;
        QTest::newRow("38 digits") << "0." + kFullDigits << 0.12345678901234567890123456789012345678;
        QTest::newRow("smallest normal") << "2.2250738585072014e-308" << 2.2250738585072014e-308;
        QTest::newRow("beyond the largest") << "1e400" << std::numeric_limits<double>::infinity();
        QTest::newRow("beyond the largest, negative") << "-1e400" << -std::numeric_limits<double>::infinity();
        QTest::newRow("below the smallest") << "1e-400" << 0.0;
        QTest::newRow("below the smallest, negative") << "-1e-400" << -0.0;
    }

    void toDoubleIsCorrectlyRounded()
    {
        QFETCH(QString, text);
        QFETCH(double, value);

        const double converted = decimal(text).toDouble();
        QCOMPARE(std::bit_cast<quint64>(converted), std::bit_cast<quint64>(value));
    }

    // Short coefficients are converted by one exact division or multiplication,
    // long ones through text: both must give the double strtod gives, bit for
    // bit, on either side of every limit of the short way (2^53, 10^22).
    void toDoubleAgreesWithStrtod()
    {
        QRandomGenerator random(20261121);
        for (int i = 0; i < 200000; ++i) {
            const int count = 1 + int(random.bounded(18));
            QString digits;
            for (int d = 0; d < count; ++d)
                digits += QChar(u'0' + char16_t(random.bounded(10)));
            if (random.bounded(4) == 0)
                digits = QStringLiteral("9007199254740") + digits.right(3);   // around 2^53
            const QString text = (random.bounded(2) ? QStringLiteral("-") : QString()) + digits
                                 + QStringLiteral("e%1").arg(int(random.bounded(61)) - 30);
            const double expected = std::strtod(text.toLatin1().constData(), nullptr);
            const double converted = decimal(text).toDouble();
            if (std::bit_cast<quint64>(converted) != std::bit_cast<quint64>(expected))
                QFAIL(qPrintable(QStringLiteral("%1: %2 instead of %3").arg(text).arg(converted, 0, 'g', 17).arg(expected, 0, 'g', 17)));
        }
    }

    void fromIntegerCoversTheWholeRange_data()
    {
        QTest::addColumn<qint64>("value");
        QTest::addColumn<QString>("written");

        QTest::newRow("zero") << qint64(0) << "0";
        QTest::newRow("negative") << qint64(-42) << "-42";
        QTest::newRow("most negative") << std::numeric_limits<qint64>::min() << "-9223372036854775808";
        QTest::newRow("most positive") << std::numeric_limits<qint64>::max() << "9223372036854775807";
    }

    void fromIntegerCoversTheWholeRange()
    {
        QFETCH(qint64, value);
        QFETCH(QString, written);

        const HBDecimal converted = HBDecimal::fromInteger(value);
        QCOMPARE(converted.toString(), written);
        QCOMPARE(converted.scale(), 0);
        QVERIFY(converted == decimal(written));
    }

    void fromScaledIntegerKeepsTheScale_data()
    {
        QTest::addColumn<bool>("negative");
        QTest::addColumn<quint64>("magnitude");
        QTest::addColumn<int>("scale");
        QTest::addColumn<QString>("written");

        QTest::newRow("trailing zeros kept") << false << quint64(48117300) << 6 << "48.117300";
        QTest::newRow("negative") << true << quint64(11516667) << 6 << "-11.516667";
        QTest::newRow("all digits after the point") << false << quint64(5) << 4 << "0.0005";
        QTest::newRow("zero keeps its scale") << false << quint64(0) << 3 << "0.000";
        // a zero has no side: no "-0.000"
        QTest::newRow("negative zero is zero") << true << quint64(0) << 3 << "0.000";
        QTest::newRow("largest magnitude") << false << std::numeric_limits<quint64>::max() << 17
                                           << "184.46744073709551615";
        QTest::newRow("scale 0") << true << quint64(42) << 0 << "-42";
        QTest::newRow("largest scale") << false << quint64(1) << HBDecimal::kExponentLimit
                                       << "0." + QString(HBDecimal::kExponentLimit - 1, u'0') + "1";
        QTest::newRow("scale beyond the limit") << false << quint64(1) << HBDecimal::kExponentLimit + 1 << "NaN";
    }

    void fromScaledIntegerKeepsTheScale()
    {
        QFETCH(bool, negative);
        QFETCH(quint64, magnitude);
        QFETCH(int, scale);
        QFETCH(QString, written);

        const HBDecimal value = HBDecimal::fromScaledInteger(negative, magnitude, scale);
        QCOMPARE(value.toString(), written);
        if (!value.isNaN()) {
            QCOMPARE(value.scale(), scale);
            QVERIFY(value == decimal(written));
        }
    }

    void equalValuesShareAHashBucket()
    {
        const QSet<HBDecimal> set{decimal("48.1173"), decimal("48.117300"), decimal("4.81173e1"),
                                  decimal("0"), decimal("-0.000"), HBDecimal(), decimal("junk")};
        QCOMPARE(set.size(), 3);
        QVERIFY(set.contains(decimal("48.11730")));
        QVERIFY(set.contains(HBDecimal::notANumber()));
        QVERIFY(!set.contains(decimal("48.11731")));
    }

    void travelsInAVariant()
    {
        const QVariant variant = QVariant::fromValue(decimal("48.117300"));
        QCOMPARE(variant.value<HBDecimal>().toString(), QStringLiteral("48.117300"));
        QVERIFY(variant == QVariant::fromValue(decimal("48.1173")));
        QVERIFY(variant != QVariant::fromValue(decimal("48.1174")));
    }

    void archivesEveryDigit_data()
    {
        QTest::addColumn<QString>("text");

        QTest::newRow("trailing zeros") << "48.117300";
        QTest::newRow("negative zero") << "-0.000";
        QTest::newRow("38 digits") << "-" + kFullDigits;
        QTest::newRow("positive exponent") << "1.5e3";
        QTest::newRow("smallest exponent") << "1e-6144";
        QTest::newRow("NaN") << "NaN";
    }

    void archivesEveryDigit()
    {
        QFETCH(QString, text);

        const HBDecimal value = decimal(text);
        QByteArray bytes;
        {
            QDataStream out(&bytes, QIODevice::WriteOnly);
            out << value << decimal("7");
        }
        QDataStream in(bytes);
        HBDecimal read;
        HBDecimal next;
        in >> read >> next;
        QCOMPARE(in.status(), QDataStream::Ok);
        QCOMPARE(read.toString(), value.toString());
        QCOMPARE(read.scale(), value.scale());
        QCOMPARE(next.toString(), QStringLiteral("7"));
    }

    void refusesCorruptArchives_data()
    {
        QTest::addColumn<quint8>("kind");
        QTest::addColumn<quint64>("high");
        QTest::addColumn<quint64>("low");
        QTest::addColumn<qint32>("exponent");

        QTest::newRow("unknown kind") << quint8(3) << quint64(0) << quint64(5) << qint32(0);
        // 10^38 = 0x4B3B4CA85A86C47A098A224000000000 has 39 digits.
        QTest::newRow("coefficient of 39 digits")
            << quint8(1) << quint64(0x4B3B4CA85A86C47AULL) << quint64(0x098A224000000000ULL) << qint32(0);
        QTest::newRow("exponent out of range") << quint8(2) << quint64(0) << quint64(1) << qint32(7000);
    }

    void refusesCorruptArchives()
    {
        QFETCH(quint8, kind);
        QFETCH(quint64, high);
        QFETCH(quint64, low);
        QFETCH(qint32, exponent);

        QByteArray bytes;
        {
            QDataStream out(&bytes, QIODevice::WriteOnly);
            out << kind << high << low << exponent;
        }
        QDataStream in(bytes);
        HBDecimal read = decimal("1");
        in >> read;
        QCOMPARE(in.status(), QDataStream::ReadCorruptData);
        QVERIFY(read.isNaN());

        // A record cut short reads as NaN and leaves the stream past its end.
        QDataStream truncated(bytes.left(9));
        HBDecimal partial = decimal("1");
        truncated >> partial;
        QCOMPARE(truncated.status(), QDataStream::ReadPastEnd);
        QVERIFY(partial.isNaN());
    }
};

QTEST_GUILESS_MAIN(tst_HBDecimal)
#include "tst_HBDecimal.moc"
