#pragma once

#include <optional>
#include <QByteArray>
#include <QIODevice>

namespace klangor {

// One chunk of a RIFF file as its header states it.
struct RiffChunk
{
    QByteArray id;         // the four-letter chunk id
    qint64 bodyOffset = 0; // where the chunk's body starts in the device
    quint32 size = 0;      // the body size the header claims
    bool cut = false;      // the device ends inside the claimed body
};

// Walks the chunks that follow a RIFF file's 12-byte header (which the caller judges itself).
// Each chunk is skipped with its pad byte (chunks are word aligned); the walk ends where the
// next chunk header does not fit into the device, or after MaxChunks chunks.
class RiffChunks
{
public:
    // A genuine WAV has a handful of chunks; a file of millions of empty ones (a sparse file
    // reads as such) would keep a walk busy for minutes.
    static constexpr int MaxChunks = 1024;

    explicit RiffChunks(QIODevice &device) : m_device(device) {}

    std::optional<RiffChunk> next();
    // The walk ended at MaxChunks, not at the end of the device.
    bool tooMany() const { return m_count > MaxChunks; }

private:
    QIODevice &m_device;
    qint64 m_offset = 12;
    int m_count = 0;
};

} // namespace klangor
