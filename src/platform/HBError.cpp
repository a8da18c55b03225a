#include "platform/HBError.h"

#include <QLoggingCategory>
#include <QStringList>

HBError::HBError(QString domain, int code, QString description, QString failureReason)
    : m_domain(std::move(domain))
    , m_code(code)
    , m_description(std::move(description))
    , m_failureReason(std::move(failureReason))
{
}

QString HBError::detailedErrorsDescription() const
{
    QStringList parts;
    for (const HBError &e : m_detailedErrors)
        parts << e.localizedDescription();
    return parts.join(QLatin1String("; "));
}

void HBError::log(const QLoggingCategory &category, const QString &where) const
{
    qCWarning(category).noquote() << m_description;
    qCWarning(category).noquote() << detailedErrorsDescription();
    if (!where.isEmpty())
        qCWarning(category).noquote() << where;
}
