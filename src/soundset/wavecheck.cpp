#include "soundset/wavecheck.h"

#include "platform/regularfile.h"

#include <QtEndian>

namespace klangor {

namespace {

constexpr qsizetype HeaderBytes = 36;

UserMessage refusal(const char *text, const char *title)
{
    return {QString::fromUtf8(text), QString::fromUtf8(title), MessageIcon::Critical};
}

} // namespace

Status judgeWaveHeader(const QByteArray &header, std::optional<double> lengthSeconds)
{
    // Fields are read at fixed offsets whatever chunk lies there.
    if (header.size() < HeaderBytes || header.left(4).toUpper() != "RIFF" ||
        header.mid(8, 4).toUpper() != "WAVE")
        return refusal("Die ausgewählte Sound-Datei hat einen ungültigen Format.",
                       "Ungültiger Soundformat");
    const char *data = header.constData();
    const auto channels = qFromLittleEndian<qint16>(data + 22);
    const auto sampleRate = qFromLittleEndian<qint32>(data + 24);
    const auto bitsPerSample = qFromLittleEndian<qint16>(data + 34);

    if (bitsPerSample != 8 && bitsPerSample != 16)
        return refusal("Falsche Bitrate! Nur 8-Bit oder 16-Bit Sounds erlaubt.",
                       "Ungültiger Bitrate");
    if (channels != 1)
        return refusal("Nur Mono Sounds sind erlaubt.", "Zuviel Soundkanal");
    if (sampleRate != 11025)
        return refusal("Nur 11-kHz Sounds sind erlaubt.", "Ungültiger Samplerate");
    if (lengthSeconds && *lengthSeconds > MaxWaveSeconds)
        return refusal("Maximale Länge von 5.9 Sekunden überschritten.", "Zu langer Sound");
    return {};
}

WaveChecker::WaveChecker(WaveAudioDevice &device) : m_device(device) {}

std::optional<double> WaveChecker::GetWaveLength(const QString &shortPath)
{
    const std::optional<qint64> ms = m_device.lengthMilliseconds(shortPath);
    if (!ms)
        return std::nullopt;
    return static_cast<double>(*ms) / 1000.0;
}

Status WaveChecker::CheckWaveFile(const QString &path)
{
    // Measured first, for every file, also one the header tests will refuse.
    const std::optional<double> length = GetWaveLength(path);

    return judgeWaveHeader(readWaveHeader(path), length);
}

QByteArray readWaveHeader(const QString &path)
{
    RegularFile file;
    if (!file.openFile(path))
        return {};
    return file.read(HeaderBytes);
}

} // namespace klangor
