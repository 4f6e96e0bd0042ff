#include "soundset/wavefolder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>

namespace klangor {
namespace {

TEST(WaveFolder, WavFilesAndSoundsToConvertInReadingOrder)
{
    QTemporaryDir dir;
    for (const char *name :
         {"e.mp3", "c.Wav", "B2.wav", "b.wav", "d.wave", "A.WAV", ".wav", "x.wav.txt", "f.OGG",
          "g.flac", "h.aif", "i.opus", "j.raw", "k.mat", "ogg", "notes.txt"})
        ASSERT_TRUE(test::writeFile(dir.filePath(QString::fromUtf8(name)), "x"));
    ASSERT_TRUE(QDir(dir.path()).mkdir("folder.wav"));
    ASSERT_TRUE(QDir(dir.path()).mkdir("folder.ogg"));
    const QList<SoundFileEntry> expected = {
        {".wav", false}, {"A.WAV", false}, {"b.wav", false}, {"B2.wav", false}, {"c.Wav", false},
        {"e.mp3", true}, {"f.OGG", true},  {"g.flac", true}, {"h.aif", true},   {"i.opus", true}};
    EXPECT_EQ(listSoundFiles(dir.path()), expected);
    EXPECT_EQ(listSoundFiles(dir.filePath("missing")), std::nullopt);

    // A folder of very many files is looked at only in part, and says so.
    QTemporaryDir big;
    for (int i = 0; i <= MaxScannedEntries; ++i)
        ASSERT_TRUE(QFile(big.filePath(QString("%1.wav").arg(i))).open(QIODevice::WriteOnly));
    bool cut = false;
    EXPECT_EQ(listSoundFiles(big.path(), &cut)->size(), MaxScannedEntries);
    EXPECT_TRUE(cut);
    QFile::remove(big.filePath("0.wav"));
    EXPECT_EQ(listSoundFiles(big.path(), &cut)->size(), MaxScannedEntries);
    EXPECT_FALSE(cut);
}

TEST(WaveFolder, FreeFileNameCountsOnPastTakenNames)
{
    QTemporaryDir dir;
    EXPECT_EQ(freeFileName(dir.path(), "x_decoder.wav"), "x_decoder.wav");
    ASSERT_TRUE(test::writeFile(dir.filePath("x_decoder.wav"), "x"));
    ASSERT_TRUE(QFile::link("/missing", dir.filePath("x_decoder (2).wav")));
    EXPECT_EQ(freeFileName(dir.path(), "x_decoder.wav"), "x_decoder (3).wav");
}

} // namespace
} // namespace klangor
