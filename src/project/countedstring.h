#pragma once

#include <optional>
#include <QByteArray>
#include <QIODevice>

namespace klangor {

// Counted strings of array and project files: a 16-bit length and the bytes; from 65,535
// bytes on, 0xFFFF and then the length as unsigned 32-bit. All numbers little-endian.
inline constexpr quint16 LongCountMarker = 0xFFFF;

// false when the length does not fit even the long form; out is then unchanged.
bool appendCountedString(QByteArray &out, const QByteArray &bytes);
void appendInt16(QByteArray &out, qint16 value);
void appendInt32(QByteArray &out, qint32 value);
// Bytes a counted string of this length takes in a file.
qint64 countedStringSize(qint64 length);

// Reads little-endian fields from a device of known size. Every read checks the bytes that
// are left first, so a length field from a damaged file never leads to a huge allocation.
class LittleEndianReader
{
public:
    explicit LittleEndianReader(QIODevice &device) : m_device(device) {}

    // For qint16, qint32, quint16 and quint32.
    template <typename T> std::optional<T> read();
    std::optional<QByteArray> readCountedString();
    // The length field of a counted string alone; its bytes follow.
    std::optional<quint32> readCountedLength();
    std::optional<QByteArray> readBytes(qint64 count);
    // Passes over count bytes without reading them; an empty array when they are there.
    std::optional<QByteArray> skip(qint64 count);
    qint64 bytesLeft() const;

private:
    QIODevice &m_device;
};

} // namespace klangor
