#include "model/HBGeoPointSymbol.h"

#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

HBGeoPointSymbol *HBGeoPointSymbol::geoPointSymbolWithName(const QString &name, HBManagedObjectContext *context)
{
    if (!context)
        return nullptr;
    HBFetchRequest request(QStringLiteral("HBGeoPointSymbol"));
    request.setPredicate(HBPredicate::format(QStringLiteral("name == %@"), {name}));
    // a failed fetch counts as no symbol
    const QList<HBManagedObject *> found = context->executeFetchRequest(request);
    if (!found.isEmpty())
        return static_cast<HBGeoPointSymbol *>(found.first());
    auto *symbol = context->insertNewObject<HBGeoPointSymbol>(QStringLiteral("HBGeoPointSymbol"));
    symbol->setName(name);
    return symbol;
}

std::optional<qint64> HBGeoPointSymbol::garminUID() const
{
    const QVariant v = valueForKey(QStringLiteral("garminUID"));
    return v.isValid() ? std::optional<qint64>(v.toLongLong()) : std::nullopt;
}

void HBGeoPointSymbol::setGarminUID(std::optional<qint64> uid)
{
    setValueForKey(uid ? QVariant::fromValue(*uid) : QVariant(), QStringLiteral("garminUID"));
}
