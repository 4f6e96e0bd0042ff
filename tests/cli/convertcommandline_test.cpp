#include "clitesthelpers.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>

namespace klangor {
namespace {

using test::runCommand;

// One line per input, the output's path or the reason; exit 1 when any failed, 2 without -o.
TEST(ConvertCommandLine, ConvertsEachInputIntoTheFolderAndSaysHowItWent)
{
    QTemporaryDir dir;
    const QString good = dir.filePath("studio.wav"), bad = dir.filePath("text.wav");
    const QString out = dir.filePath("aus");
    test::writeFile(good, test::makeWav({.channels = 2, .sampleRate = 48000, .bitsPerSample = 16}));
    test::writeFile(bad, "kein Ton");

    test::CommandRun run = runCommand({"convert", "--8bit", good, "-o", out});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, good + "\t" + out + "/studio_decoder.wav\n");
    // One byte a sample, 8 bits.
    EXPECT_EQ(test::readFile(out + "/studio_decoder.wav").mid(32, 4), QByteArray("\1\0\10\0", 4));

    run = runCommand({"convert", bad, good, "--trim", "--overwrite", "-o", out});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.out.startsWith(bad + "\tDie Datei „" + bad + "“ kann nicht umgewandelt"));
    EXPECT_TRUE(run.out.endsWith("\n" + good + "\t" + out + "/studio_decoder.wav\n"));

    // The user's files: an existing one is replaced only when asked, an input never; a refusal
    // stops the whole batch.
    const QString done = out + "/studio_decoder.wav";
    const QByteArray before = test::readFile(done);
    run = runCommand({"convert", good, "-o", out});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out,
              good + "\tDie Datei „" + done + "“ gibt es schon; sie wird nicht ersetzt.\n");
    EXPECT_EQ(run.err, "klangor: Vorhandene Dateien ersetzt convert nur mit „--overwrite“.\n");
    run = runCommand({"convert", "--overwrite", done, good, "-o", out});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.out.startsWith(done + "\tNichts wurde umgewandelt"));
    EXPECT_TRUE(
        run.out.endsWith("„" + done + "“ ist eine der Eingaben und wird nicht überschrieben.\n"));
    EXPECT_EQ(QDir(out).entryList(QDir::Files | QDir::Hidden), QStringList({"studio_decoder.wav"}));
    EXPECT_EQ(test::readFile(done), before);

    run = runCommand({"convert", good, "-o", good}); // a file stands where the folder would go
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, good + "\tDer Ordner „" + good +
                           "“ kann nicht angelegt werden: Unter diesem Namen gibt es schon eine "
                           "Datei.\n");

    run = runCommand({"convert", good});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.startsWith("klangor: Es fehlt die Option „-o ORDNER“."));
}

} // namespace
} // namespace klangor
