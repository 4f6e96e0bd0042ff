#pragma once

#include "common/result.h"

#include <limits>
#include <QByteArray>
#include <QIODevice>
#include <QString>

namespace klangor {

// A regular file read by blocks, never beyond the size it had when it was opened, however it
// changes meanwhile. A link is followed only to a regular file; FIFOs, devices and folders are
// refused without waiting on them.
class RegularFile final : public QIODevice
{
public:
    RegularFile() = default;
    ~RegularFile() override;
    RegularFile(const RegularFile &) = delete;
    RegularFile &operator=(const RegularFile &) = delete;

    // Opens path for reading; refused with the reason, also when it holds more than maxBytes.
    Status openFile(const QString &path, qint64 maxBytes = std::numeric_limits<qint64>::max());
    // The failure of the last read, as a message naming the file; none after good reads.
    Status readStatus() const;

    bool isSequential() const override { return false; }
    qint64 size() const override { return m_size; }
    void close() override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QString m_path;
    int m_fd = -1;
    qint64 m_size = 0;
    int m_readError = 0;
};

// Reads a regular file whole, under the same rules; a file of more than maxBytes is refused.
Result<QByteArray> readRegularFile(const QString &path, qint64 maxBytes);

} // namespace klangor
