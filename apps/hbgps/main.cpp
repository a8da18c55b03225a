#include "HBGPSTool.h"

#include "platform/HBFileName.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("hbgps"));
    // Decoded as file names are, so that a path whose bytes are not UTF-8
    // still reaches its file.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(HBFileName::decode(argv[i]));
    return HBGPSTool().run(arguments);
}
