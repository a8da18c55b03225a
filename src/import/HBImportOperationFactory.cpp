#include "import/HBImportOperationFactory.h"

#include "import/HBGPXFileImportOperation.h"
#include "import/HBNMEAImportOperation.h"
#include "import/HBTCXFileImportOperation.h"

#include <QFileInfo>

std::shared_ptr<HBFileImportOperation> HBImportOperationFactory::operationForPath(const QString &path,
                                                                                const HBImportContexts &contexts)
{
    std::shared_ptr<HBFileImportOperation> operation = operationForExtension(QFileInfo(path).suffix().toLower());
    if (operation)
        operation->setImportContexts(contexts);
    return operation;
}

std::shared_ptr<HBFileImportOperation> HBImportOperationFactory::operationForExtension(const QString &extension)
{
    if (extension == QLatin1String("tcx"))
        return std::make_shared<HBTCXFileImportOperation>();
    if (extension == QLatin1String("gpx"))
        return std::make_shared<HBGPXFileImportOperation>();
    for (const char *log : {"nmea", "log", "txt", "gps"}) {
        if (extension == QLatin1String(log))
            return std::make_shared<HBNMEAImportOperation>();
    }
    return nullptr;
}
