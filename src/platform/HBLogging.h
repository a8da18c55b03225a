#pragma once

#include <QLoggingCategory>

// One logging category per subsystem, so that hosts and tests can select
// and capture the lines of one part of the library.
Q_DECLARE_LOGGING_CATEGORY(hbStore)
Q_DECLARE_LOGGING_CATEGORY(hbModel)
Q_DECLARE_LOGGING_CATEGORY(hbManager)
Q_DECLARE_LOGGING_CATEGORY(hbGeometry)
Q_DECLARE_LOGGING_CATEGORY(hbImport)
Q_DECLARE_LOGGING_CATEGORY(hbExport)
Q_DECLARE_LOGGING_CATEGORY(hbBrowse)
Q_DECLARE_LOGGING_CATEGORY(hbPlatform)
