#pragma once

#include "platform/store/HBManagedObject.h"

#include <QByteArray>
#include <QString>

#include <optional>

class HBManagedObjectContext;

// A named symbol shared by every point that shows it.
class HBGeoPointSymbol : public HBManagedObject
{
public:
    // The first symbol of that name in the context, made when there is none.
    static HBGeoPointSymbol *geoPointSymbolWithName(const QString &name, HBManagedObjectContext *context);

    QString name() const { return valueForKey(QStringLiteral("name")).toString(); }
    void setName(const QString &name) { setValueForKey(name, QStringLiteral("name")); }
    // the symbol's number on handheld receivers
    std::optional<qint64> garminUID() const;
    void setGarminUID(std::optional<qint64> uid);
    QByteArray imageData() const { return valueForKey(QStringLiteral("imageData")).toByteArray(); }
    void setImageData(const QByteArray &data) { setValueForKey(data, QStringLiteral("imageData")); }
    QString imagePath() const { return valueForKey(QStringLiteral("imagePath")).toString(); }
    void setImagePath(const QString &path) { setValueForKey(path, QStringLiteral("imagePath")); }
    QList<HBManagedObject *> points() const { return objectsForKey(QStringLiteral("points")); }
};
