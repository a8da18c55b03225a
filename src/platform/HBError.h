#pragma once

#include <QList>
#include <QString>

class QLoggingCategory;

// A failure as the library reports it: no exceptions cross the API, so an
// operation that can fail returns false or an empty result and hands one of
// these out. The detailed errors carry the causes of a compound failure
// (one per store of a failed save, for instance).
class HBError
{
public:
    HBError() = default;
    HBError(QString domain, int code, QString description, QString failureReason = {});

    bool isNull() const { return m_domain.isEmpty() && m_code == 0; }
    QString domain() const { return m_domain; }
    int code() const { return m_code; }
    QString localizedDescription() const { return m_description; }
    QString localizedFailureReason() const { return m_failureReason; }

    QList<HBError> detailedErrors() const { return m_detailedErrors; }
    void setDetailedErrors(const QList<HBError> &errors) { m_detailedErrors = errors; }

    // The text of the detailed-errors entry as the store-error log prints
    // it: the descriptions of the causes, or an empty text when there are none.
    QString detailedErrorsDescription() const;

    // The store-error log: the description, the detailed errors' text, then
    // the line that says where it happened (left out when empty); the three
    // lines are the system's own, kept word for word.
    void log(const QLoggingCategory &category, const QString &where) const;

private:
    QString m_domain;
    int m_code = 0;
    QString m_description;
    QString m_failureReason;
    QList<HBError> m_detailedErrors;
};
