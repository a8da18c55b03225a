#include "platform/HBUserDefaults.h"

#include "platform/HBLogging.h"

#include <QSettings>

#include <cmath>
#include <limits>

namespace {

const QString kOrganisation = QStringLiteral("Fernwick");
const QString kApplication = QStringLiteral("Fernwick");

bool isAffirmativeWord(const QString &text)
{
    return text.compare(u"true", Qt::CaseInsensitive) == 0
        || text.compare(u"yes", Qt::CaseInsensitive) == 0;
}

qint64 truncatedToInteger(double value)
{
    // The bounds as doubles: 2^63 exactly, which qint64 cannot hold.
    constexpr double kLimit = 9223372036854775808.0;
    if (!std::isfinite(value))
        return 0;
    if (value >= kLimit)
        return std::numeric_limits<qint64>::max();
    if (value < -kLimit)
        return std::numeric_limits<qint64>::min();
    return qint64(std::trunc(value));
}

qint64 integerFromText(const QString &text)
{
    if (isAffirmativeWord(text))
        return 1;
    bool ok = false;
    // Integers first, so that large ones keep every digit.
    const qint64 integer = text.toLongLong(&ok);
    if (ok)
        return integer;
    const double number = text.toDouble(&ok);
    return ok ? truncatedToInteger(number) : 0;
}

bool boolFromText(const QString &text)
{
    if (isAffirmativeWord(text))
        return true;
    bool ok = false;
    const double number = text.toDouble(&ok);
    return ok && number != 0 && !std::isnan(number);
}

} // namespace

HBUserDefaults &HBUserDefaults::standardUserDefaults()
{
    static HBUserDefaults defaults;
    return defaults;
}

HBUserDefaults::HBUserDefaults()
    : m_settings(std::make_unique<QSettings>(kOrganisation, kApplication))
{
}

HBUserDefaults::~HBUserDefaults() = default;

void HBUserDefaults::registerDefaults(const QVariantMap &defaults)
{
    QMutexLocker lock(&m_mutex);
    m_registeredDefaults.insert(defaults);
}

QVariant HBUserDefaults::objectForKey(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    const QVariant stored = m_settings->value(key);
    return stored.isValid() ? stored : m_registeredDefaults.value(key);
}

void HBUserDefaults::setObject(const QVariant &value, const QString &key)
{
    if (!value.isValid()) {
        removeObjectForKey(key);
        return;
    }
    QMutexLocker lock(&m_mutex);
    m_settings->setValue(key, value);
}

void HBUserDefaults::removeObjectForKey(const QString &key)
{
    QMutexLocker lock(&m_mutex);
    m_settings->remove(key);
}

bool HBUserDefaults::boolForKey(const QString &key) const
{
    return boolFromText(stringForKey(key).trimmed());
}

QString HBUserDefaults::stringForKey(const QString &key) const
{
    return objectForKey(key).toString();
}

qint64 HBUserDefaults::integerForKey(const QString &key) const
{
    return integerFromText(stringForKey(key).trimmed());
}

void HBUserDefaults::synchronize()
{
    QMutexLocker lock(&m_mutex);
    m_settings->sync();
    if (m_settings->status() != QSettings::NoError)
        qCWarning(hbPlatform) << "HBUserDefaults: could not synchronize" << m_settings->fileName()
                              << "status" << m_settings->status();
}
