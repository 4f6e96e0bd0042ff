#include "project/countedstring.h"

#include <limits>
#include <QtEndian>

namespace klangor {

namespace {

template <typename T> void appendLittleEndian(QByteArray &out, T value)
{
    char bytes[sizeof(T)];
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(T));
}

} // namespace

void appendInt16(QByteArray &out, qint16 value)
{
    appendLittleEndian(out, value);
}

void appendInt32(QByteArray &out, qint32 value)
{
    appendLittleEndian(out, value);
}

qint64 countedStringSize(qint64 length)
{
    return length < LongCountMarker ? 2 + length : 6 + length;
}

bool appendCountedString(QByteArray &out, const QByteArray &bytes)
{
    const qint64 length = bytes.size();
    if (length > std::numeric_limits<quint32>::max())
        return false;
    if (length < LongCountMarker) {
        appendLittleEndian(out, static_cast<quint16>(length));
    } else {
        appendLittleEndian(out, LongCountMarker);
        appendLittleEndian(out, static_cast<quint32>(length));
    }
    out.append(bytes);
    return true;
}

qint64 LittleEndianReader::bytesLeft() const
{
    return m_device.size() - m_device.pos();
}

std::optional<QByteArray> LittleEndianReader::readBytes(qint64 count)
{
    if (count < 0 || count > bytesLeft())
        return std::nullopt;
    QByteArray bytes = m_device.read(count);
    if (bytes.size() != count)
        return std::nullopt;
    return bytes;
}

std::optional<qint16> LittleEndianReader::readInt16()
{
    const auto bytes = readBytes(2);
    if (!bytes)
        return std::nullopt;
    return qFromLittleEndian<qint16>(bytes->constData());
}

std::optional<qint32> LittleEndianReader::readInt32()
{
    const auto bytes = readBytes(4);
    if (!bytes)
        return std::nullopt;
    return qFromLittleEndian<qint32>(bytes->constData());
}

std::optional<quint32> LittleEndianReader::readUInt32()
{
    const auto bytes = readBytes(4);
    if (!bytes)
        return std::nullopt;
    return qFromLittleEndian<quint32>(bytes->constData());
}

std::optional<QByteArray> LittleEndianReader::readCountedString()
{
    const auto shortLength = readBytes(2);
    if (!shortLength)
        return std::nullopt;
    const quint16 marker = qFromLittleEndian<quint16>(shortLength->constData());
    if (marker != LongCountMarker)
        return readBytes(marker);
    const auto longLength = readUInt32();
    if (!longLength)
        return std::nullopt;
    return readBytes(*longLength);
}

} // namespace klangor
