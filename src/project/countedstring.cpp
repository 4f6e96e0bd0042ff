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

std::optional<QByteArray> LittleEndianReader::skip(qint64 count)
{
    if (count < 0 || count > bytesLeft() || !m_device.seek(m_device.pos() + count))
        return std::nullopt;
    return QByteArray();
}

template <typename T> std::optional<T> LittleEndianReader::read()
{
    const auto bytes = readBytes(sizeof(T));
    if (!bytes)
        return std::nullopt;
    return qFromLittleEndian<T>(bytes->constData());
}

template std::optional<qint16> LittleEndianReader::read<qint16>();
template std::optional<qint32> LittleEndianReader::read<qint32>();
template std::optional<quint16> LittleEndianReader::read<quint16>();
template std::optional<quint32> LittleEndianReader::read<quint32>();

std::optional<quint32> LittleEndianReader::readCountedLength()
{
    const auto marker = read<quint16>();
    if (!marker || *marker != LongCountMarker)
        return marker;
    return read<quint32>();
}

std::optional<QByteArray> LittleEndianReader::readCountedString()
{
    const auto length = readCountedLength();
    if (!length)
        return std::nullopt;
    return readBytes(*length);
}

} // namespace klangor
