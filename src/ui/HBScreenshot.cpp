#include "ui/HBScreenshot.h"

#include <QApplication>
#include <QRegularExpression>
#include <QWidget>

#include <cstdio>

std::optional<QSize> HBScreenshot::parseSize(const QString &text)
{
    static const QRegularExpression widthByHeight(QStringLiteral("^(\\d+)x(\\d+)$"));
    const QRegularExpressionMatch m = widthByHeight.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    return QSize(m.captured(1).toInt(), m.captured(2).toInt());
}

void HBScreenshot::writeAndQuit(QWidget *window, const QString &path, const char *program)
{
    const bool written = window->grab().save(path);
    if (!written)
        std::fprintf(stderr, "%s: cannot write %s\n", program, qPrintable(path));
    QApplication::exit(written ? 0 : 1);
}
