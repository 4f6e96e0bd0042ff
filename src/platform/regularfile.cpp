#include "platform/regularfile.h"

#include "platform/fileprimitives.h"
#include "platform/systemreason.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace klangor {

using namespace files;

namespace {

UserMessage cannotRead(const QString &path, const QString &reason)
{
    return {
        QStringLiteral("Die Datei „%1“ kann nicht gelesen werden: %2").arg(shown(path), reason)};
}

} // namespace

RegularFile::~RegularFile()
{
    close();
}

Status RegularFile::openFile(const QString &path, qint64 maxBytes)
{
    close();
    m_path = path;
    // O_NONBLOCK: opening a FIFO must not wait for a writer.
    Descriptor file(::open(nativePath(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.valid()) {
        const int error = errno;
        return cannotRead(path, error == EACCES || error == EPERM
                                    ? QStringLiteral("Keine Leseberechtigung.")
                                    : systemReason(error));
    }
    struct stat st;
    if (::fstat(file.get(), &st) != 0)
        return cannotRead(path, systemReason(errno));
    if (!S_ISREG(st.st_mode))
        return cannotRead(path, QStringLiteral("Das ist keine gewöhnliche Datei."));
    if (st.st_size > maxBytes)
        return cannotRead(path, QStringLiteral("Die Datei ist zu groß."));
    m_size = st.st_size;
    m_readError = 0;
    m_fd = file.release();
    QIODevice::open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    return {};
}

Status RegularFile::readStatus() const
{
    if (m_readError == 0)
        return {};
    return cannotRead(m_path, systemReason(m_readError));
}

void RegularFile::close()
{
    if (m_fd >= 0)
        ::close(std::exchange(m_fd, -1));
    m_size = 0;
    QIODevice::close();
}

qint64 RegularFile::readData(char *data, qint64 maxSize)
{
    const qint64 at = pos();
    const qint64 wanted = std::min(maxSize, m_size - at);
    qint64 done = 0;
    while (done < wanted) {
        const ssize_t n = ::pread(m_fd, data + done, static_cast<size_t>(wanted - done), at + done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            m_readError = errno;
            return done > 0 ? done : -1;
        }
        if (n == 0)
            break; // the file shrank since it was opened
        done += n;
    }
    return done;
}

Result<QByteArray> readRegularFile(const QString &path, qint64 maxBytes)
{
    RegularFile file;
    if (const Status opened = file.openFile(path, maxBytes); !opened)
        return opened.error();
    QByteArray data = file.read(file.size());
    if (const Status read = file.readStatus(); !read)
        return read.error();
    return data;
}

} // namespace klangor
