#include "model/HBGPXFile.h"

#include <QTest>

class tst_HBGPXFile : public QObject
{
    Q_OBJECT

private slots:
    void filenameIsTheLastPathComponent_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("filename");
        QTest::newRow("no path") << QString() << QString();
        QTest::newRow("absolute") << "/home/ann/Tracks/2023 Alps.gpx" << "2023 Alps.gpx";
        QTest::newRow("bare name") << "walk.gpx" << "walk.gpx";
        QTest::newRow("no extension") << "/tmp/track" << "track";
    }

    void filenameIsTheLastPathComponent()
    {
        QFETCH(QString, path);
        QFETCH(QString, filename);
        QCOMPARE(HBGPXFile(path).filename(), filename);
        HBGPXFile file;
        QVERIFY(file.filename().isEmpty());
        file.setPath(path);
        QCOMPARE(file.filename(), filename);
    }
};

QTEST_GUILESS_MAIN(tst_HBGPXFile)
#include "tst_HBGPXFile.moc"
