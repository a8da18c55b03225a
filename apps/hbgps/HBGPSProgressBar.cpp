#include "HBGPSProgressBar.h"

#include <algorithm>

namespace {

constexpr int kBarWidth = 30;

} // namespace

HBGPSProgressBar::HBGPSProgressBar(QTextStream &out, bool terminal)
    : m_out(out)
    , m_terminal(terminal)
{
}

void HBGPSProgressBar::update(quint64 value, quint64 maximum, const QString &info)
{
    const double done = maximum > 0 ? std::clamp(double(value) / double(maximum), 0.0, 1.0) : 0.0;
    const int percent = int(done * 100.0);
    if (m_terminal) {
        const int filled = int(done * kBarWidth);
        m_out << "\r[" << QString(filled, u'#') << QString(kBarWidth - filled, u' ') << "] "
              << QString::number(percent).rightJustified(3) << "% " << info.left(60).leftJustified(60) << Qt::flush;
        m_drawn = true;
        return;
    }
    if (info == m_lastInfo && percent / 10 == m_lastTenth)
        return;
    m_lastInfo = info;
    m_lastTenth = percent / 10;
    m_out << percent << "% " << info << Qt::endl;
}

void HBGPSProgressBar::finish()
{
    if (m_drawn)
        m_out << Qt::endl;
    m_drawn = false;
}
