#include "platform/HBLogging.h"

Q_LOGGING_CATEGORY(hbStore, "hb.store")
Q_LOGGING_CATEGORY(hbModel, "hb.model")
Q_LOGGING_CATEGORY(hbManager, "hb.manager")
Q_LOGGING_CATEGORY(hbGeometry, "hb.geometry")
Q_LOGGING_CATEGORY(hbImport, "hb.import")
Q_LOGGING_CATEGORY(hbExport, "hb.export")
Q_LOGGING_CATEGORY(hbPlatform, "hb.platform")
