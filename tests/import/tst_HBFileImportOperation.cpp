#include "ImportTestSupport.h"
#include "SqliteRows.h"

#include <QFileInfo>

using namespace importtest;

namespace {

// The least an importer does: it takes a context from the background
// manager, records the file and saves.
class SourceOnlyImport : public HBFileImportOperation
{
public:
    enum class Context { Fresh, BackgroundRoot };
    explicit SourceOnlyImport(Context context = Context::Fresh) : m_contextKind(context) {}

    void main() override
    {
        HBTrackManager *background = HBTrackManager::sharedBackgroundThreadTrackManager();
        if (m_contextKind == Context::Fresh)
            setManagedObjectContext(background->newManagedObjectContext());
        else
            setSharedManagedObjectContext(background->managedObjectContext());
        HBManagedObjectContext *context = managedObjectContext();
        context->performBlockAndWait([&] {
            insertImportSource(context);
            m_saved = context->save();
        });
    }

    bool saved() const { return m_saved; }

private:
    const Context m_contextKind;
    bool m_saved = false;
};

const qint64 C = HBFileImportOperation::kCharacterCountChunkBytes;

// ASCII up to the byte offset, then the bytes, then one more ASCII letter.
QByteArray at(qint64 offset, const QByteArray &bytes)
{
    return QByteArray(offset, 'a') + bytes + 'z';
}

} // namespace

// The measure of a file that import progress is counted in, and the
// import source record every importer makes of its file.
class tst_HBFileImportOperation : public QObject
{
    Q_OBJECT

    ImportTestHome m_home;

    // Makes what the row's kind names at the path: a file with the bytes,
    // a folder, or nothing.
    static void make(const QString &kind, const QString &path, const QByteArray &bytes)
    {
        if (kind == QLatin1String("file"))
            QVERIFY(writeFile(path, bytes));
        else if (kind == QLatin1String("folder"))
            QVERIFY(QDir().mkpath(path));
    }

private slots:
    void initTestCase() { QVERIFY(m_home.setUp()); }

    void numberOfCharactersCountsUtf16Units_data()
    {
        QTest::addColumn<QString>("kind");   // "file", "folder" or "missing"
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<quint64>("expected");

        QTest::newRow("ascii") << "file" << QByteArray("hello, world\n") << quint64(13);
        QTest::newRow("two-byte letters") << "file" << QByteArray("Z\xC3\xBCrich Stra\xC3\x9F" "e") << quint64(13);
        QTest::newRow("outside the basic plane counts twice")
            << "file" << QByteArray("a\xF0\x9F\x98\x80" "b\xF0\x9D\x84\x9E") << quint64(6);
        // the byte order mark is a character of the file: U+FEFF
        QTest::newRow("byte order mark counts once") << "file" << QByteArray("\xEF\xBB\xBF<gpx/>") << quint64(7);
        QTest::newRow("only a byte order mark") << "file" << QByteArray("\xEF\xBB\xBF") << quint64(1);
        QTest::newRow("NUL is text") << "file" << QByteArray("a\0b", 3) << quint64(3);
        QTest::newRow("empty") << "file" << QByteArray() << quint64(0);
        QTest::newRow("missing") << "missing" << QByteArray() << quint64(0);
        QTest::newRow("folder") << "folder" << QByteArray() << quint64(0);

        QTest::newRow("invalid byte inside") << "file" << QByteArray("ab\xFF" "cd") << quint64(0);
        QTest::newRow("invalid byte at the very end") << "file" << QByteArray("abc\xFF") << quint64(0);
        QTest::newRow("truncated character at the end") << "file" << QByteArray("abc\xE2\x82") << quint64(0);
        QTest::newRow("lone continuation byte") << "file" << QByteArray("\x80" "abc") << quint64(0);
        QTest::newRow("encoded surrogate") << "file" << QByteArray("\xED\xA0\x80") << quint64(0);
        QTest::newRow("overlong encoding") << "file" << QByteArray("\xC0\xAF") << quint64(0);
        QTest::newRow("beyond U+10FFFF") << "file" << QByteArray("\xF4\x90\x80\x80") << quint64(0);

        // characters cut by the boundary between two reads
        const QByteArray euro("\xE2\x82\xAC"), grin("\xF0\x9F\x98\x80");
        QTest::newRow("3-byte character, 1 byte before the boundary") << "file" << at(C - 1, euro) << quint64(C + 1);
        QTest::newRow("3-byte character, 2 bytes before the boundary") << "file" << at(C - 2, euro) << quint64(C);
        QTest::newRow("4-byte character, 1 byte before the boundary") << "file" << at(C - 1, grin) << quint64(C + 2);
        QTest::newRow("4-byte character, 2 bytes before the boundary") << "file" << at(C - 2, grin) << quint64(C + 1);
        QTest::newRow("4-byte character, 3 bytes before the boundary") << "file" << at(C - 3, grin) << quint64(C);
        QTest::newRow("4-byte character ending at the boundary") << "file" << at(C - 4, grin) << quint64(C - 1);
        QTest::newRow("4-byte character across the second boundary") << "file" << at(2 * C - 2, grin) << quint64(2 * C + 1);
        QTest::newRow("lead byte before the boundary, ASCII after it") << "file" << at(C - 1, "\xE2" "b") << quint64(0);
        QTest::newRow("truncated character ends a one-read file") << "file" << QByteArray(C - 2, 'a') + "\xF0\x9F"
                                                                   << quint64(0);
        QTest::newRow("invalid byte in the second read") << "file" << at(C + 10, "\xFF") << quint64(0);
    }

    void numberOfCharactersCountsUtf16Units()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, bytes);
        QFETCH(quint64, expected);
        const QString path = m_home.filePath(QString::fromUtf8(QTest::currentDataTag()));
        make(kind, path, bytes);

        QCOMPARE(HBFileImportOperation::numberOfCharactersInFile(path), expected);
        SourceOnlyImport operation;
        operation.setFilePath(path);
        QCOMPARE(operation.filePath(), path);
        // measured when the path is set, not when asked
        QVERIFY(!QFile::exists(path) || QFileInfo(path).isDir() || QFile::remove(path));
        QCOMPARE(operation.numberOfCharacters(), expected);
    }

    void everyFileGetsAnImportSource_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<quint64>("characters");
        QTest::addColumn<bool>("hasDate");
        QTest::newRow("text") << "file" << QByteArray("<gpx>\xC3\xA9</gpx>\n") << quint64(13) << true;
        QTest::newRow("empty") << "file" << QByteArray() << quint64(0) << true;
        QTest::newRow("not UTF-8") << "file" << QByteArray("<gpx>\xFF</gpx>") << quint64(0) << true;
        QTest::newRow("missing") << "missing" << QByteArray() << quint64(0) << false;
    }

    void everyFileGetsAnImportSource()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, bytes);
        QFETCH(quint64, characters);
        QFETCH(bool, hasDate);
        const QString name = QStringLiteral("source %1.gpx").arg(QTest::currentDataTag());
        const QString path = m_home.filePath(name);
        make(kind, path, bytes);
        // a past modification time with milliseconds, which the record must keep exactly
        const QDateTime modified(QDate(2021, 3, 4), QTime(5, 6, 7, 89), Qt::UTC);
        if (hasDate) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadWrite));
            QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
        }
        const QDateTime importDate(QDate(2024, 2, 29), QTime(23, 59, 59, 999), Qt::UTC);

        auto operation = std::make_shared<SourceOnlyImport>();
        operation->setFilePath(path);
        operation->setImportDate(importDate);
        QCOMPARE(operation->numberOfCharacters(), characters);
        runToEnd(operation);
        QVERIFY(operation->isFinished());
        QVERIFY(operation->saved());
        QVERIFY(operation->managedObjectContext());

        std::unique_ptr<HBManagedObjectContext> reader = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
        reader->performBlockAndWait([&] {
            HBImportSource *source = importSourceWithPath(reader.get(), path);
            QVERIFY(source);
            QCOMPARE(source->sourceType(), 1);
            QCOMPARE(source->name(), name);
            QCOMPARE(source->importDate(), importDate);
            const std::optional<quint64> size = bytes.isEmpty() ? std::nullopt : std::optional<quint64>(bytes.size());
            QCOMPARE(source->fileSize(), size);
            QCOMPARE(source->fileModificationDate(), hasDate ? modified : QDateTime());
            QCOMPARE(source->fileModificationDate(), QFileInfo(path).lastModified());
        });
        const QString central = HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql");
        const QString escaped = QString(path).replace(u'\'', QStringLiteral("''"));
        QCOMPARE(rowsIn(central, QStringLiteral("HBImportSource"),
                        QStringLiteral("filePath = '%1' AND fileSize IS %2 AND fileModificationDate IS %3")
                            .arg(escaped, bytes.isEmpty() ? QStringLiteral("NULL") : QStringLiteral("NOT NULL"),
                                 hasDate ? QStringLiteral("NOT NULL") : QStringLiteral("NULL"))),
                 qint64(1));
    }

    void aBorrowedContextOutlivesTheOperation()
    {
        const QString path = m_home.filePath(QStringLiteral("borrowed.nmea"));
        QVERIFY(writeFile(path, "$GPRMC\n"));
        HBManagedObjectContext *root = HBTrackManager::sharedBackgroundThreadTrackManager()->managedObjectContext();
        {
            auto operation = std::make_shared<SourceOnlyImport>(SourceOnlyImport::Context::BackgroundRoot);
            operation->setFilePath(path);
            runToEnd(operation);
            QVERIFY(operation->saved());
            QCOMPARE(operation->managedObjectContext(), root);
        }
        root->performBlockAndWait([&] {
            HBImportSource *source = importSourceWithPath(root, path);
            QVERIFY(source);
            QCOMPARE(source->fileSize(), std::optional<quint64>(7));
        });
    }
};

QTEST_GUILESS_MAIN(tst_HBFileImportOperation)
#include "tst_HBFileImportOperation.moc"
