#include "HBGPSProgressBar.h"

#include <algorithm>

namespace {

constexpr int kBarWidth = 30;   // characters
constexpr int kInfoWidth = 40;  // characters: the whole line fits 80 columns

} // namespace

HBGPSProgressBar::HBGPSProgressBar(QTextStream &terminal)
    : m_terminal(terminal)
{
}

void HBGPSProgressBar::update(quint64 value, quint64 maximum, const QString &info)
{
    const double done = maximum > 0 ? std::clamp(double(value) / double(maximum), 0.0, 1.0) : 0.0;
    const int filled = int(done * kBarWidth);
    m_terminal << "\r[" << QString(filled, u'#') << QString(kBarWidth - filled, u' ') << "] "
               << QString::number(int(done * 100.0)).rightJustified(3) << "% " << info.left(kInfoWidth).leftJustified(kInfoWidth)
               << Qt::flush;
    m_drawn = true;
}

void HBGPSProgressBar::finish()
{
    if (m_drawn)
        m_terminal << '\r' << QString(kBarWidth + 8 + kInfoWidth, u' ') << '\r' << Qt::flush;
    m_drawn = false;
}
