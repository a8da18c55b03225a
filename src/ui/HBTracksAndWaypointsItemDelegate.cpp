#include "ui/HBTracksAndWaypointsItemDelegate.h"

#include "browse/HBTracksAndWaypointsTableModel.h"

#include <QDateTime>

namespace {

// seconds to "1:02:03", or "2:03" under an hour
QString durationText(qint64 seconds)
{
    const qint64 h = seconds / 3600, m = seconds / 60 % 60, s = seconds % 60;
    const QString minutesAndSeconds = QStringLiteral("%1:%2").arg(m, h > 0 ? 2 : 1, 10, QLatin1Char('0')).arg(s, 2, 10, QLatin1Char('0'));
    return h > 0 ? QStringLiteral("%1:%2").arg(h).arg(minutesAndSeconds) : minutesAndSeconds;
}

} // namespace

QString HBTracksAndWaypointsItemDelegate::textForValue(int column, const QVariant &value, const QLocale &locale)
{
    if (!value.isValid() || value.isNull())
        return {};
    using Model = HBTracksAndWaypointsTableModel;
    switch (column) {
    case Model::StartDate: return locale.toString(value.toDateTime().toLocalTime(), QLocale::ShortFormat);
    case Model::Points: return locale.toString(value.toLongLong());
    case Model::Distance: return QStringLiteral("%1 km").arg(locale.toString(value.toDouble() / 1000.0, 'f', 2));
    case Model::Duration: return durationText(qRound64(value.toDouble()));
    default: return value.toString();
    }
}

void HBTracksAndWaypointsItemDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    option->text = textForValue(index.column(), index.data(), option->locale);
    if (index.column() == HBTracksAndWaypointsTableModel::Points || index.column() == HBTracksAndWaypointsTableModel::Distance
        || index.column() == HBTracksAndWaypointsTableModel::Duration)
        option->displayAlignment = Qt::AlignRight | Qt::AlignVCenter;
}
