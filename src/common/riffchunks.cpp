#include "common/riffchunks.h"

#include <QtEndian>

namespace klangor {

std::optional<RiffChunk> RiffChunks::next()
{
    const qint64 end = m_device.size();
    if (m_offset + 8 > end || m_count > MaxChunks || !m_device.seek(m_offset))
        return std::nullopt;
    if (++m_count > MaxChunks)
        return std::nullopt;
    const QByteArray header = m_device.read(8);
    if (header.size() != 8)
        return std::nullopt;
    RiffChunk chunk;
    chunk.id = header.left(4);
    chunk.size = qFromLittleEndian<quint32>(header.constData() + 4);
    chunk.bodyOffset = m_offset + 8;
    chunk.cut = static_cast<qint64>(chunk.size) > end - chunk.bodyOffset;
    m_offset = chunk.bodyOffset + chunk.size + (chunk.size & 1u);
    return chunk;
}

} // namespace klangor
