#include "TemporaryHome.h"

#include "import/gpsbabel/HBGPSBabelImportOperation.h"
#include "platform/HBOperationQueue.h"
#include "platform/HBUserDefaults.h"

#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

// Downloads through the real gpsbabel, with files standing in for the
// receiver: what counts as failure, what text is kept, where the file goes.
class tst_HBGPSBabelImportOperation : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

    static QString corpus(const QString &name) { return QStringLiteral(HB_CORPUS_DIR "/") + name; }

    // What the program prints on both channels when run straight.
    static QByteArray printedBy(const QString &program, const QStringList &arguments)
    {
        QTemporaryDir elsewhere;
        QProcess run;
        run.setWorkingDirectory(elsewhere.path());
        run.setProcessChannelMode(QProcess::MergedChannels);
        run.start(program, arguments);
        run.waitForFinished(-1);
        return run.readAll();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
    }

    void anyPrintedTextFailsTheDownload_data()
    {
        QTest::addColumn<QString>("program");   // empty: the default
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("printed");   // a part of the text; empty: a quiet run
        QTest::addColumn<bool>("fileWritten");

        const QString gpx = corpus(QStringLiteral("gpx/gpsbabel-fitwrite-mavi.gpx"));
        const QStringList toDownload{QStringLiteral("-o"), QStringLiteral("gpx"), QStringLiteral("-F"),
                                     QStringLiteral("download.gpx")};
        const QStringList fromGPX = QStringList{QStringLiteral("-i"), QStringLiteral("gpx"), QStringLiteral("-f"), gpx}
            + toDownload;
        QTest::newRow("quiet conversion, named relative to the destination's folder")
            << QString() << fromGPX << QString() << true;
        QTest::newRow("warning beside a written file")
            << QString()
            << QStringList{QStringLiteral("-i"), QStringLiteral("nmea"), QStringLiteral("-f"),
                           corpus(QStringLiteral("nmea/gpsd-com-1289.log"))} + toDownload
            << QStringLiteral("Invalid NMEA checksum") << true;
        QTest::newRow("unknown input format")
            << QString()
            << QStringList{QStringLiteral("-i"), QStringLiteral("nosuchformat"), QStringLiteral("-f"), gpx} + toDownload
            << QStringLiteral("nosuchformat") << false;
        QTest::newRow("missing input")
            << QString()
            << QStringList{QStringLiteral("-i"), QStringLiteral("gpx"), QStringLiteral("-f"),
                           m_home.filePath(QStringLiteral("absent.gpx"))} + toDownload
            << m_home.filePath(QStringLiteral("absent.gpx")) << false;
        // gpsbabel names the file in UTF-8; each byte of the "ö" shows as U+FFFD
        QTest::newRow("missing input with a name beyond ASCII")
            << QString()
            << QStringList{QStringLiteral("-i"), QStringLiteral("gpx"), QStringLiteral("-f"),
                           m_home.filePath(QStringLiteral("M\u00f6we.gpx"))} + toDownload
            << QStringLiteral("M\ufffd\ufffdwe.gpx") << false;
        QTest::newRow("program that cannot start")
            << m_home.filePath(QStringLiteral("no/such/gpsbabel")) << fromGPX << QString() << false;
    }

    void anyPrintedTextFailsTheDownload()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QFETCH(QString, printed);
        QFETCH(bool, fileWritten);
        HBUserDefaults::standardUserDefaults().setObject(program.isEmpty() ? QVariant() : QVariant(program),
                                                         kHBDefaultGPSBabelProgramPath);
        QTemporaryDir folder;
        const QString destination = folder.filePath(QStringLiteral("download.gpx"));
        HBGPSBabelImportOperation download;
        download.setFileDestinationPath(destination);
        download.setGpsbabelArguments(arguments);
        QSignalSpy chunks(&download, &HBGPSBabelImportOperation::babelOutputTextChanged);

        download.main();

        QCOMPARE(QFileInfo(destination).size() > 0, fileWritten);
        QCOMPARE(download.errorOccurredDuringDownload(), !printed.isEmpty());
        if (printed.isEmpty()) {
            QCOMPARE(chunks.count(), 0);
            QCOMPARE(download.babelOutputText(), QString());
            return;
        }
        QVERIFY(chunks.count() > 0);
        QVERIFY(!download.babelOutputText().isEmpty());
        QCOMPARE(download.babelOutputText(), chunks.last().at(0).toString());
        QString everything;
        for (const QList<QVariant> &chunk : std::as_const(chunks))
            everything += chunk.at(0).toString();
        QVERIFY2(everything.contains(printed), qPrintable(everything));
        // nothing lost, nothing added, up to the last line
        QString asPrinted = QString::fromLatin1(printedBy(HBGPSBabelImportOperation::gpsbabelProgram(), arguments));
        for (QChar &c : asPrinted)
            c = c.unicode() < 0x80 ? c : QChar(QChar::ReplacementCharacter);
        QCOMPARE(everything, asPrinted);
    }

    // A receiver that never answers: gpsbabel waits on the named pipe until
    // it is killed.
    void cancellingAStalledDownloadFlagsIt()
    {
        HBUserDefaults::standardUserDefaults().removeObjectForKey(kHBDefaultGPSBabelProgramPath);
        QTemporaryDir folder;
        const QString receiver = folder.filePath(QStringLiteral("receiver"));
        QCOMPARE(::mkfifo(QFile::encodeName(receiver).constData(), 0600), 0);
        auto download = std::make_shared<HBGPSBabelImportOperation>();
        download->setFileDestinationPath(folder.filePath(QStringLiteral("download.gpx")));
        download->setGpsbabelArguments({QStringLiteral("-i"), QStringLiteral("gpx"), QStringLiteral("-f"), receiver,
                                        QStringLiteral("-o"), QStringLiteral("gpx"), QStringLiteral("-F"),
                                        QStringLiteral("download.gpx")});
        HBOperationQueue queue;
        queue.addOperation(download);
        QTRY_VERIFY(download->isExecuting());
        download->cancel();
        queue.waitUntilAllOperationsAreFinished();
        QVERIFY(download->errorOccurredDuringDownload());
        QCOMPARE(download->babelOutputText(), QString());
    }
};

QTEST_GUILESS_MAIN(tst_HBGPSBabelImportOperation)
#include "tst_HBGPSBabelImportOperation.moc"
