#include "HBGPSTool.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hbgps"));
    return HBGPSTool().run(app.arguments());
}
