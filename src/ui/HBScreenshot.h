#pragma once

#include <QSize>
#include <QString>

#include <optional>

class QWidget;

// What the desktop programs' --screenshot and --size options share.
class HBScreenshot
{
public:
    // "WIDTHxHEIGHT", such as "1000x700"; nullopt for anything else.
    static std::optional<QSize> parseSize(const QString &text);
    // Writes the window to the PNG file and ends the program: 0 when written,
    // else 1 with a line on stderr that starts with the program's name.
    static void writeAndQuit(QWidget *window, const QString &path, const char *program);
};
