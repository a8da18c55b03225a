#pragma once

#include <QKeyEvent>

// The Delete key as the lists understand it: the one key press whose text is
// the single character 0x7F. Backspace (0x08), or Delete held with a
// modifier that makes it type something else, is not it.
inline bool HBIsDeleteKeyPress(const QKeyEvent *event)
{
    return event->text() == QString(QChar(0x7F));
}
