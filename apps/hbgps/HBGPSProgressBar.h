#pragma once

#include <QString>
#include <QTextStream>

// The progress of an import as one line redrawn in place on a terminal.
// It is drawn only there: off a terminal progress lines would be noise in
// whatever reads the output.
class HBGPSProgressBar
{
public:
    explicit HBGPSProgressBar(QTextStream &terminal);
    void update(quint64 value, quint64 maximum, const QString &info);
    // Clears the line, so that what is printed next starts on a clean one.
    void finish();

private:
    QTextStream &m_terminal;
    bool m_drawn = false;
};
