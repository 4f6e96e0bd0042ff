// Any bytes as a sound file to convert: a message that says why, or a file the decoder check
// takes; never a crash.
#include "platform/waveaudiodevice.h"
#include "soundset/soundconversion.h"
#include "soundset/wavecheck.h"

#include <QFile>
#include <QTemporaryDir>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("fuzz.snd"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    file.close();
    // Always cut: a few bytes of FLAC can stand for an hour of silence.
    const klangor::ConversionOptions options{size > 0 && (data[0] & 1), true};
    const klangor::Result<klangor::ConvertedSound> output =
        klangor::convertForDecoder(path, dir.path(), options);
    if (!output) {
        if (output.error().text.isEmpty())
            __builtin_trap();
        return 0;
    }
    klangor::RiffWaveAudioDevice device;
    if (!klangor::WaveChecker(device).CheckWaveFile(output.value().path))
        __builtin_trap();
    return 0;
}
