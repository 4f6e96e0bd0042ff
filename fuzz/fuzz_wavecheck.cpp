// Any bytes as a WAV file: the check and the length measurement must judge, never crash.
#include "platform/waveaudiodevice.h"
#include "soundset/wavecheck.h"

#include <QBuffer>
#include <QTemporaryDir>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    const auto ms = klangor::measureRiffWaveMilliseconds(buffer);
    if (ms && *ms < 0)
        __builtin_trap();

    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("fuzz.wav"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(bytes);
    file.close();
    klangor::RiffWaveAudioDevice device;
    klangor::WaveChecker checker(device);
    // A refusal always names its rule.
    const klangor::Status verdict = checker.CheckWaveFile(path);
    if (!verdict && verdict.error().text.isEmpty())
        __builtin_trap();
    return 0;
}
