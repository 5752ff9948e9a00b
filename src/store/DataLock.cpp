#include "store/DataLock.h"

#include <QFile>

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>
#include <thread>

namespace fiva {

DataLock::DataLock(const QString &lockFile, std::chrono::milliseconds wait)
{
    const int fd = ::open(QFile::encodeName(lockFile).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        m_error = lockFile + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
        return;
    }
    // Polled rather than blocking, so that a writer that never ends cannot freeze us for good.
    const auto deadline = std::chrono::steady_clock::now() + wait;
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            m_fd = fd;
            return;
        }
        const int error = errno;
        if ((error != EWOULDBLOCK && error != EINTR) || std::chrono::steady_clock::now() >= deadline) {
            m_error = lockFile + QStringLiteral(": ") +
                      (error == EWOULDBLOCK ? QStringLiteral("un autre programme écrit les données")
                                            : QString::fromLocal8Bit(std::strerror(error)));
            ::close(fd);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

DataLock::~DataLock()
{
    if (m_fd >= 0)
        ::close(m_fd); // closing the last descriptor releases the lock
}

QString DataLock::fileName()
{
    return QStringLiteral("Fiva.lock");
}

} // namespace fiva
