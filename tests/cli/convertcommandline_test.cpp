#include "clitesthelpers.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFileInfo>
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

    // Too long without --trim is refused and leaves nothing; what a conversion did on its own
    // (here: a cut-off input) goes to stderr.
    const QString longer = dir.filePath("lang.wav"), cut = dir.filePath("kurz.wav");
    test::writeFile(longer, test::makeWav({.sampleRate = 8000, .dataBytes = 6 * 8000}));
    test::writeFile(cut, test::makeWav({.sampleRate = 8000, .dataBytes = 8000}).left(44 + 2000));
    run = runCommand({"convert", longer, "-o", dir.filePath("neu")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.out.endsWith("Er lässt sich nur gekürzt umwandeln (auf der Kommandozeile mit "
                                 "--trim).\n"));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("neu")));
    run = runCommand({"convert", cut, "-o", out});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err,
              "klangor: „" + cut +
                  "“ ist abgeschnitten oder beschädigt. Nur 2.000 von "
                  "8.000 Frames (0,25 von 1,00 s) sind lesbar. Umgewandelt wurde der lesbare "
                  "Teil.\n");

    run = runCommand({"convert", good});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.startsWith("klangor: Es fehlt die Option „-o ORDNER“."));
}

} // namespace
} // namespace klangor
