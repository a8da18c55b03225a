#include "platform/HBLogging.h"

Q_LOGGING_CATEGORY(hbStore, "hb.store", QtInfoMsg)
Q_LOGGING_CATEGORY(hbModel, "hb.model", QtInfoMsg)
Q_LOGGING_CATEGORY(hbManager, "hb.manager", QtInfoMsg)
Q_LOGGING_CATEGORY(hbGeometry, "hb.geometry", QtInfoMsg)
Q_LOGGING_CATEGORY(hbImport, "hb.import", QtInfoMsg)
Q_LOGGING_CATEGORY(hbExport, "hb.export", QtInfoMsg)
Q_LOGGING_CATEGORY(hbBrowse, "hb.browse", QtInfoMsg)
Q_LOGGING_CATEGORY(hbPlatform, "hb.platform", QtInfoMsg)
