#include "browse/HBFaultLoader.h"

#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QElapsedTimer>

namespace {

// About a millisecond of fetching on the build machine.
constexpr qsizetype kChunkSize = 250;

} // namespace

HBFaultLoader::HBFaultLoader(HBManagedObjectContext *context, QList<HBManagedObject *> objects)
    : m_context(context)
    , m_objects(std::move(objects))
{
}

bool HBFaultLoader::loadFor(std::chrono::milliseconds budget)
{
    QElapsedTimer timer;
    timer.start();
    while (m_next < m_objects.size()) {
        loadNextChunk();
        if (timer.elapsed() >= budget.count())
            break;
    }
    return m_next >= m_objects.size();
}

void HBFaultLoader::load(HBManagedObjectContext *context, const QList<HBManagedObject *> &objects)
{
    HBFaultLoader(context, objects).loadFor(std::chrono::milliseconds::max());
}

// The next faulted records of one entity, fetched by identifier.
void HBFaultLoader::loadNextChunk()
{
    const HBEntityDescription *entity = nullptr;
    QList<HBManagedObjectID> ids;
    for (; m_next < m_objects.size() && ids.size() < kChunkSize; ++m_next) {
        const HBManagedObject *object = m_objects.at(m_next);
        if (!object->isFault())
            continue;
        if (entity && object->entity() != entity)
            break;
        entity = object->entity();
        ids.append(object->objectID());
    }
    if (ids.isEmpty())
        return;
    HBFetchRequest request(entity->name());
    request.setPredicate(HBPredicate::format(QStringLiteral("self IN %@"), {QVariant::fromValue(ids)}));
    m_context->executeFetchRequest(request);
}
