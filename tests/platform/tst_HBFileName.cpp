#include "platform/HBFileName.h"

#include <QTest>

// File names as bytes and as text: valid UTF-8 reads as its text, every
// other byte as one private-use character, and any name goes back to its
// own bytes.
class tst_HBFileName : public QObject
{
    Q_OBJECT

private slots:
    void namesGoBackToTheirBytes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("ASCII") << QByteArray("/tmp/ride.gpx") << QStringLiteral("/tmp/ride.gpx");
        QTest::newRow("UTF-8, two to four bytes a character")
            << QByteArray("Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x9a\xb2") << QStringLiteral("Z\u00fcrich \u20ac \U0001F6B2");
        QTest::newRow("a Latin-1 letter") << QByteArray("caf\xe9.gpx") << QStringLiteral("caf\uefe9.gpx");
        QTest::newRow("a character cut off") << QByteArray("a\xe2\x82") << QStringLiteral("a\uefe2\uef82");
        QTest::newRow("an overlong slash") << QByteArray("\xc0\xaf") << QStringLiteral("\uefc0\uefaf");
        QTest::newRow("an encoded surrogate") << QByteArray("\xed\xa0\x80") << QStringLiteral("\uefed\uefa0\uef80");
        QTest::newRow("past U+10FFFF") << QByteArray("\xf4\x90\x80\x80") << QStringLiteral("\ueff4\uef90\uef80\uef80");
        QTest::newRow("a lead byte of five") << QByteArray("\xf8\x90\x80\x80") << QStringLiteral("\ueff8\uef90\uef80\uef80");
        // a character of the escape range itself is kept as its bytes
        QTest::newRow("valid UTF-8 of U+EFE9") << QByteArray("\xee\xbf\xa9") << QStringLiteral("\uefee\uefbf\uefa9");
        QTest::newRow("the character below the range") << QByteArray("\xee\xbd\xbf") << QStringLiteral("\uef7f");
    }

    void namesGoBackToTheirBytes()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        QCOMPARE(HBFileName::decode(bytes), text);
        QCOMPARE(HBFileName::encode(text), bytes);
    }
};

QTEST_GUILESS_MAIN(tst_HBFileName)
#include "tst_HBFileName.moc"
