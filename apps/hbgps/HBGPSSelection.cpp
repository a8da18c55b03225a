#include "HBGPSSelection.h"

#include "manager/HBTrackManager.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QRegularExpression>

void HBGPSSelection::addOptions(QCommandLineParser &parser)
{
    parser.addOption({QStringLiteral("date"), QStringLiteral("Tracks starting and waypoints dated in that year, month or day (local time)."),
                      QStringLiteral("YYYY[-MM[-DD]]")});
    parser.addOption({QStringLiteral("source"), QStringLiteral("Tracks and waypoints imported from files of that name."),
                      QStringLiteral("NAME")});
    parser.addOption({QStringLiteral("recent"), QStringLiteral("Tracks and waypoints of the newest import.")});
    parser.addOption({QStringLiteral("all"), QStringLiteral("Every track and waypoint (the default).")});
}

std::optional<HBGPSSelection> HBGPSSelection::fromParser(const QCommandLineParser &parser, QString *error)
{
    HBGPSSelection selection;
    int chosen = 0;
    if (parser.isSet(QStringLiteral("date"))) {
        ++chosen;
        static const QRegularExpression form(QStringLiteral("^(\\d{4})(?:-(\\d{2})(?:-(\\d{2}))?)?$"));
        const QRegularExpressionMatch m = form.match(parser.value(QStringLiteral("date")));
        const QDate first(m.captured(1).toInt(), m.captured(2).isEmpty() ? 1 : m.captured(2).toInt(),
                          m.captured(3).isEmpty() ? 1 : m.captured(3).toInt());
        if (!m.hasMatch() || !first.isValid()) {
            *error = QStringLiteral("cannot read the date %1 (expected YYYY, YYYY-MM or YYYY-MM-DD)").arg(parser.value(QStringLiteral("date")));
            return std::nullopt;
        }
        const QDate after = !m.captured(3).isEmpty() ? first.addDays(1) : !m.captured(2).isEmpty() ? first.addMonths(1) : first.addYears(1);
        selection.m_kind = Kind::Date;
        selection.m_from = QDateTime(first, QTime(0, 0));
        selection.m_to = QDateTime(after, QTime(0, 0));
    }
    if (parser.isSet(QStringLiteral("source"))) {
        ++chosen;
        selection.m_kind = Kind::Source;
        selection.m_sourceName = parser.value(QStringLiteral("source"));
    }
    if (parser.isSet(QStringLiteral("recent"))) {
        ++chosen;
        selection.m_kind = Kind::Recent;
    }
    if (parser.isSet(QStringLiteral("all")))
        ++chosen;
    if (chosen > 1) {
        *error = QStringLiteral("choose one of --date, --source, --recent and --all");
        return std::nullopt;
    }
    return selection;
}

QList<HBManagedObject *> HBGPSSelection::importSourcesNamed(HBManagedObjectContext *context, const QString &name)
{
    HBFetchRequest request(QStringLiteral("HBImportSource"));
    request.setPredicate(HBPredicate::format(QStringLiteral("name == %@"), {name}));
    return context->executeFetchRequest(request);
}

HBPredicate HBGPSSelection::sourcePredicate(HBTrackManager *manager) const
{
    std::unique_ptr<HBManagedObjectContext> context = manager->newPrivateQueueContext();
    QList<HBManagedObjectID> sources;
    context->performBlockAndWait([&] {
        for (const HBManagedObject *source : importSourcesNamed(context.get(), m_sourceName))
            sources.append(source->objectID());
    });
    return HBPredicate::format(QStringLiteral("importSource IN %@"), {QVariant::fromValue(sources)});
}

// The manager works the newest batch out in the background when it starts;
// a fresh answer is awaited here.
HBPredicate HBGPSSelection::recentPredicate(HBTrackManager *manager)
{
    QEventLoop loop;
    QObject::connect(manager, &HBTrackManager::recentImportsPredicateChanged, &loop, &QEventLoop::quit, Qt::QueuedConnection);
    manager->refreshRecentImportsPredicate();
    loop.exec();
    return manager->recentImportsPredicate();
}

HBGPSSelection::Predicates HBGPSSelection::predicates(HBTrackManager *manager) const
{
    switch (m_kind) {
    case Kind::Date:
        return {HBPredicate::format(QStringLiteral("startDate >= %@ AND startDate < %@"), {m_from.toUTC(), m_to.toUTC()}),
                HBPredicate::format(QStringLiteral("date >= %@ AND date < %@"), {m_from.toUTC(), m_to.toUTC()})};
    case Kind::Source: {
        const HBPredicate bySource = sourcePredicate(manager);
        return {bySource, bySource};
    }
    case Kind::Recent: {
        const HBPredicate recent = recentPredicate(manager);
        return {recent, recent};
    }
    case Kind::All:
        break;
    }
    return {HBPredicate::truePredicate(), HBPredicate::truePredicate()};
}
