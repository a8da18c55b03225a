#pragma once

#include "import/HBImportContexts.h"

#include <QString>

#include <memory>

class HBFileImportOperation;

// The import operation for a file, chosen by its extension (ignoring
// case): "tcx", "gpx", or the NMEA logs "nmea", "log", "txt" and "gps",
// set to make its records in the given contexts.
class HBImportOperationFactory
{
public:
    // Null for any other extension.
    static std::shared_ptr<HBFileImportOperation> operationForPath(const QString &path, const HBImportContexts &contexts);

private:
    static std::shared_ptr<HBFileImportOperation> operationForExtension(const QString &extension);
};
