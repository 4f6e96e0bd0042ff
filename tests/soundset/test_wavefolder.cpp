#include "soundset/wavefolder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace klangor {
namespace {

TEST(WaveFolder, ListsOnlyWavFilesSorted)
{
    QTemporaryDir dir;
    for (const char *name :
         {"e.mp3", "c.Wav", "A.WAV", "d.wave", "b.wav", "wav", ".wav", "x.wav.txt"})
        ASSERT_TRUE(test::writeFile(dir.filePath(QString::fromUtf8(name)), "x"));
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("folder.wav"))); // folders never listed
    EXPECT_EQ(listWaveFiles(dir.path()),
              (QStringList{QStringLiteral(".wav"), QStringLiteral("A.WAV"), QStringLiteral("b.wav"),
                           QStringLiteral("c.Wav")}));
}

TEST(WaveFolder, CaseInsensitiveOrder)
{
    QTemporaryDir dir;
    for (const char *name : {"b.wav", "B2.wav", "a.wav", "Zug.wav", "horn.WAV"})
        ASSERT_TRUE(test::writeFile(dir.filePath(QString::fromUtf8(name)), "x"));
    EXPECT_EQ(
        listWaveFiles(dir.path()),
        (QStringList{QStringLiteral("a.wav"), QStringLiteral("b.wav"), QStringLiteral("B2.wav"),
                     QStringLiteral("horn.WAV"), QStringLiteral("Zug.wav")}));
}

TEST(WaveFolder, EmptyAndUnreadableFolders)
{
    QTemporaryDir dir;
    EXPECT_EQ(listWaveFiles(dir.path()), QStringList());
    EXPECT_EQ(listWaveFiles(dir.filePath(QStringLiteral("missing"))), std::nullopt);
}

} // namespace
} // namespace klangor
