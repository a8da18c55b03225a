#include "manager/HBStoreIdentifierCache.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

// A start trusts these notes instead of opening each period file, so a note
// must never outlive the file it was made for: a point would then be looked
// for in the wrong file.
class tst_HBStoreIdentifierCache : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString file(const QString &name) const { return m_dir.filePath(name); }
    QString notes() const { return file(QStringLiteral("PointDatabaseIdentifiers")); }
    static bool touch(const QString &path)
    {
        QFile f(path);
        return f.open(QIODevice::WriteOnly) && f.write("x") == 1;
    }

private slots:
    void aNoteHoldsOnlyForTheFileItWasMadeFor()
    {
        QVERIFY(touch(file(QStringLiteral("10.sql"))) && touch(file(QStringLiteral("11.sql"))));
        {
            HBStoreIdentifierCache cache(notes());
            cache.note(file(QStringLiteral("10.sql")), QStringLiteral("A"));
            cache.note(file(QStringLiteral("11.sql")), QStringLiteral("B"));
            cache.note(file(QStringLiteral("11.sql")), QStringLiteral("C"));
        }
        // a file put in place of 10.sql by another program, and a line that is not a note
        QVERIFY(touch(file(QStringLiteral("other"))));
        QCOMPARE(std::rename(qPrintable(file(QStringLiteral("other"))), qPrintable(file(QStringLiteral("10.sql")))), 0);
        QFile garbled(notes());
        QVERIFY(garbled.open(QIODevice::Append));
        garbled.write("12.sql\tnot a number\tD\n");
        garbled.close();

        HBStoreIdentifierCache restarted(notes());
        QCOMPARE(restarted.identifierFor(file(QStringLiteral("10.sql"))), QString());
        QCOMPARE(restarted.identifierFor(file(QStringLiteral("11.sql"))), QStringLiteral("C"));
        QCOMPARE(restarted.identifierFor(file(QStringLiteral("12.sql"))), QString());

        // only the notes of files that are still what they were remain
        restarted.tidy({file(QStringLiteral("10.sql")), file(QStringLiteral("11.sql"))});
        QFile kept(notes());
        QVERIFY(kept.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = kept.readAll().split('\n');
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines[0].startsWith("11.sql\t") && lines[0].endsWith("\tC"), lines[0].constData());
        QCOMPARE(HBStoreIdentifierCache(notes()).identifierFor(file(QStringLiteral("11.sql"))), QStringLiteral("C"));
    }
};

QTEST_GUILESS_MAIN(tst_HBStoreIdentifierCache)
#include "tst_HBStoreIdentifierCache.moc"
