#include "soundset/wavefolder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>

namespace klangor {
namespace {

TEST(WaveFolder, OnlyWavFilesInReadingOrder)
{
    QTemporaryDir dir;
    for (const char *name :
         {"e.mp3", "c.Wav", "B2.wav", "b.wav", "d.wave", "A.WAV", ".wav", "x.wav.txt"})
        ASSERT_TRUE(test::writeFile(dir.filePath(QString::fromUtf8(name)), "x"));
    ASSERT_TRUE(QDir(dir.path()).mkdir("folder.wav"));
    EXPECT_EQ(listWaveFiles(dir.path()),
              QStringList({".wav", "A.WAV", "b.wav", "B2.wav", "c.Wav"}));
    EXPECT_EQ(listWaveFiles(dir.filePath("missing")), std::nullopt);
}

} // namespace
} // namespace klangor
