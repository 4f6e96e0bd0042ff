#pragma once

#include "common/result.h"
#include "platform/programfiles.h"

#include <cerrno>
#include <QByteArray>
#include <QString>
#include <unistd.h>
#include <utility>

// The system calls the file writers and readers of this folder share; not for other folders.
namespace klangor::files {

QByteArray nativePath(const QString &path);
// The path as the user reads it in a message.
QString shown(const QString &path);
QString randomSuffix();
UserMessage cannotWrite(const QString &path, int error);

// Closes a descriptor once, keeping errno of the operation that failed before.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0) {
            const int saved = errno;
            ::close(m_fd);
            errno = saved;
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    int release() { return std::exchange(m_fd, -1); }
    // close() reports late write errors of some file systems, so its result counts.
    bool close()
    {
        const int fd = std::exchange(m_fd, -1);
        return ::close(fd) == 0;
    }

private:
    int m_fd;
};

// Writes all of data; false with errno set when a write fails.
bool writeAll(int fd, const QByteArray &data);
// Makes the renames in folder durable, where the file system can.
void syncFolder(const QString &folder);
// What lies at path, a link not followed.
bool isDirectory(const QString &path);
// A device node lies at path. Writing there would replace the node (as root, one of /dev), so
// nothing is written; a FIFO or a socket is replaced like a file.
bool isDevice(const QString &path);

} // namespace klangor::files
