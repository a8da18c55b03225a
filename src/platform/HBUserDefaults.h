#pragma once

#include <QMutex>
#include <QString>
#include <QVariant>

#include <memory>

class QSettings;

// The user's settings, kept by QSettings for organisation and application
// "Fernwick" (on Linux in $XDG_CONFIG_HOME/Fernwick/Fernwick.conf), with
// defaults that the application registers at start. A registered default
// answers only for a key the user has not set and is never written to the
// file, so that a later version can change it.
//
// The settings file keeps simple values as text ("true", "42"), so the typed
// getters read every value through its text form: a value answers the same
// in the run that set it and in every later run.
//
// All members are safe to call from any thread.
class HBUserDefaults
{
public:
    static HBUserDefaults &standardUserDefaults();

    HBUserDefaults(const HBUserDefaults &) = delete;
    HBUserDefaults &operator=(const HBUserDefaults &) = delete;

    // Adds to the defaults registered before; a key registered again takes
    // the new value.
    void registerDefaults(const QVariantMap &defaults);

    // The stored value, else the registered default, else an invalid QVariant.
    QVariant objectForKey(const QString &key) const;
    // An invalid value removes the key.
    void setObject(const QVariant &value, const QString &key);
    void removeObjectForKey(const QString &key);

    // True for "true" and "yes" in any case and for non-zero numbers.
    bool boolForKey(const QString &key) const;
    // Empty for missing keys and for values without a text form (lists).
    QString stringForKey(const QString &key) const;
    // Integers as written, decimals truncated toward zero, "true"/"yes" 1,
    // anything else 0.
    qint64 integerForKey(const QString &key) const;

    // Writes pending changes to the file and reads changes other processes
    // made to it.
    void synchronize();

private:
    HBUserDefaults();
    ~HBUserDefaults();

    // QSettings may be used from several threads, but one object not at once.
    mutable QMutex m_mutex;
    std::unique_ptr<QSettings> m_settings;
    QVariantMap m_registeredDefaults;
};
