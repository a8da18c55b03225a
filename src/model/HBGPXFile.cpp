#include "model/HBGPXFile.h"

#include <QFileInfo>

QString HBGPXFile::filename() const
{
    return QFileInfo(m_path).fileName();
}
