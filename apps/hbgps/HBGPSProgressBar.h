#pragma once

#include <QString>
#include <QTextStream>

// The progress of an import on a terminal: one line redrawn in place, or,
// when the output is not a terminal, a plain line each time the text
// changes or another tenth is done.
class HBGPSProgressBar
{
public:
    HBGPSProgressBar(QTextStream &out, bool terminal);
    void update(quint64 value, quint64 maximum, const QString &info);
    // Ends the redrawn line.
    void finish();

private:
    QTextStream &m_out;
    bool m_terminal;
    QString m_lastInfo;
    int m_lastTenth = -1;
    bool m_drawn = false;
};
