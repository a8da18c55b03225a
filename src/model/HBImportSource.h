#pragma once

#include "browse/HBTreeNode.h"
#include "platform/store/HBManagedObject.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

class HBEvent;

// One imported file (or one device download). It owns what came out of
// it: deleting the source deletes its events, tracks and waypoints.
//
// The record itself is the file's leaf in the file tree, listing the
// tracks and waypoints that came from it.
class HBImportSource : public HBManagedObject, public HBTreeNode
{
public:
    // What kind of source made the record. Every importer of this library
    // writes kHBImportSourceTypeFile; records that never had a type read 0.
    static constexpr qint32 kHBImportSourceTypeFile = 1;

    QString filePath() const { return valueForKey(QStringLiteral("filePath")).toString(); }
    void setFilePath(const QString &path) { setValueForKey(path, QStringLiteral("filePath")); }
    // shown name; importers use the file's last path component
    QString name() const override { return valueForKey(QStringLiteral("name")).toString(); }
    void setName(const QString &name) { setValueForKey(name, QStringLiteral("name")); }
    // when the import ran, UTC
    QDateTime importDate() const { return valueForKey(QStringLiteral("importDate")).toDateTime(); }
    void setImportDate(const QDateTime &date);
    // size of the file at import, bytes; absent when unknown or 0
    std::optional<quint64> fileSize() const;
    void setFileSize(std::optional<quint64> bytes);
    QDateTime fileModificationDate() const { return valueForKey(QStringLiteral("fileModificationDate")).toDateTime(); }
    void setFileModificationDate(const QDateTime &date);

    // The stored number is read as a 64-bit integer and cut to its low 32
    // bits; the setter stores the 32 bits as an unsigned number, so any
    // qint32 reads back as itself.
    qint32 sourceType() const;
    void setSourceType(qint32 type);

    QList<HBEvent *> events() const;
    QList<HBManagedObject *> tracks() const { return objectsForKey(QStringLiteral("tracks")); }
    QList<HBManagedObject *> waypoints() const { return objectsForKey(QStringLiteral("waypoints")); }

    // As a leaf of the file tree.
    bool isLeaf() const override { return true; }
    HBPredicate trackPredicate() const override { return importSourcePredicate(); }
    HBPredicate waypointPredicate() const override { return importSourcePredicate(); }

private:
    HBPredicate importSourcePredicate() const;
};
