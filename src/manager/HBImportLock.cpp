#include "manager/HBImportLock.h"

#include "platform/HBFileName.h"
#include "platform/HBLogging.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

HBImportLock::HBImportLock(QString path)
    : m_path(std::move(path))
{
}

HBImportLock::~HBImportLock()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

bool HBImportLock::tryLock()
{
    if (m_locked)
        return true;
    if (m_descriptor < 0) {
        // not inherited: a gpsbabel started meanwhile must not keep it
        m_descriptor = ::open(HBFileName::encode(m_path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (m_descriptor < 0) {
            qCWarning(hbManager).noquote() << "The import lock" << m_path << "cannot be made:" << qt_error_string(errno);
            return true;
        }
    }
    m_locked = ::flock(m_descriptor, LOCK_EX | LOCK_NB) == 0;
    return m_locked;
}

void HBImportLock::unlock()
{
    if (m_locked)
        ::flock(m_descriptor, LOCK_UN);
    m_locked = false;
}
