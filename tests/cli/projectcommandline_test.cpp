#include "clitesthelpers.h"
#include "common/wavewriter.h"
#include "platform/programfiles.h"
#include "project/arrayfile.h"
#include "project/projecttesthelpers.h"
#include "support/killedwork.h"
#include "support/printers.h"
#include "support/wavwriter.h"

#include <cmath>
#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace klangor {
namespace {

using test::readFile;
using test::runCommand;
using test::writeFile;

QByteArray soundArr(const QMap<int, QString> &names)
{
    StringArray array = StringArray::oneDimensional(0, SlotFileNames::UpperBound);
    for (auto it = names.begin(); it != names.end(); ++it)
        array.setElement(it.key(), it.value());
    return arrayFileBytes(array).value();
}

QByteArray wav(int bits, qint64 dataBytes)
{
    return test::makeWav({.bitsPerSample = bits, .dataBytes = dataBytes});
}

class ProjectCommandLineTest : public ::testing::Test
{
protected:
    ProjectCommandLineTest() { QDir(m_dir.path()).mkdir("programm"); }
    QString path(const QString &name) const { return m_dir.filePath(name); }
    QString folder() const { return path("programm"); }
    QString program(const QString &name) const { return path("programm/" + name); }
    // The program folder saved as window.spj by the window's own save.
    void saveInWindow(const QMap<int, QString> &names)
    {
        test::CommandsFixture window(folder());
        for (auto it = names.begin(); it != names.end(); ++it)
            window.host->names.set(it.key(), it.value());
        window.host->cv = "; Test\n1=3\n";
        window.saveAs(path("window.spj"));
        ASSERT_TRUE(window.host->messages.isEmpty());
    }

    QTemporaryDir m_dir;
};

TEST_F(ProjectCommandLineTest, CheckPrintsOneLinePerFileAndFailsWhenAnyFileFails)
{
    ASSERT_TRUE(writeFile(path("gut.wav"), wav(16, 22050)));
    ASSERT_TRUE(writeFile(path("stereo.wav"), test::makeWav({.channels = 2})));
    const test::CommandRun good = runCommand({"check", path("gut.wav")});
    EXPECT_EQ(good.exitCode, 0);
    EXPECT_EQ(good.out, path("gut.wav") + "\tOK\n");
    const test::CommandRun mixed =
        runCommand({"check", path("stereo.wav"), path("gut.wav"), path("fehlt.wav")});
    EXPECT_EQ(mixed.exitCode, 1);
    EXPECT_EQ(mixed.out, path("stereo.wav") + "\tNur Mono Sounds sind erlaubt.\n" +
                             path("gut.wav") + "\tOK\n" + path("fehlt.wav") +
                             "\tDie Datei existiert nicht.\n");
}

TEST_F(ProjectCommandLineTest, ShowListsSlotsLengthsTotalsAndCvList)
{
    ASSERT_TRUE(writeFile(program("0.wav"), wav(16, 22050)));
    ASSERT_TRUE(writeFile(program("37.wav"), wav(8, 5513)));
    ASSERT_TRUE(writeFile(program("80.wav"), wav(8, 1102)));
    saveInWindow({{0, "anfahren.wav"}, {1, "fehlt.wav"}, {37, "pfiff\tkurz.wav"}, {80, "x.wav"}});

    const test::CommandRun run = runCommand({"project", "show", path("window.spj")});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, QString());
    const QStringList lines = run.out.split('\n');
    EXPECT_EQ(lines.size(), 20 + 72 + 1 + 1 + 2 + 1); // and the end of the last line
    for (const QString line :
         {"ereignis\t1\tFahrgeräusch während Beschleunigung",
          "slot\t1\t1\t0\tanfahren.wav\t1000\t16\t22050", "slot\t1\t2\t1\tfehlt.wav\t-\t-\t-",
          "slot\t1\t3\t2\t-\t-\t-\t-", "slot\t14\t1\t37\tpfiff\\tkurz.wav\t500\t8\t5513",
          "slot\t-\t-\t80\tx.wav\t99\t8\t1102", "gesamt\t1599\t28665", "cv\t; Test", "cv\t1=3"})
        EXPECT_TRUE(lines.contains(line)) << line.toStdString();
}

// pack reads the folder the window saved from and writes the same bytes, changing nothing in
// it; unpack brings the sounds back under their slot names.
TEST_F(ProjectCommandLineTest, PackWritesWhatTheWindowSavesAndUnpackGivesTheSoundsBack)
{
    const QByteArray start = wav(16, 22050), whistle = wav(8, 3000);
    ASSERT_TRUE(writeFile(program("0.wav"), start));
    ASSERT_TRUE(writeFile(program("37.wav"), whistle));
    ASSERT_TRUE(writeFile(program("40.wav"), whistle));
    ASSERT_TRUE(writeFile(program("5.wav"), "nicht zugewiesen"));
    saveInWindow({{0, "C:\\Sounds\\anfahren.wav"}, {37, "pfiff.wav"}, {40, "pfiff.wav"}});
    ASSERT_TRUE(QFile::remove(program("placeholder.dat"))); // the window's save made it
    const auto before = test::snapshot(folder());

    const test::CommandRun packed = runCommand({"project", "pack", folder(), path("cli.spj")});
    EXPECT_EQ(packed.exitCode, 0) << packed.err.toStdString();
    EXPECT_EQ(test::snapshot(folder()), before);
    EXPECT_EQ(readFile(path("cli.spj")), readFile(path("window.spj")));
    ASSERT_TRUE(writeFile(path("cli.spj"), "alt"));
    EXPECT_EQ(runCommand({"project", "pack", "--overwrite", folder(), path("cli.spj")}).exitCode,
              0);
    EXPECT_EQ(readFile(path("cli.spj")), readFile(path("window.spj")));

    const test::CommandRun unpacked =
        runCommand({"project", "unpack", path("cli.spj"), path("neu/aus")});
    EXPECT_EQ(unpacked.exitCode, 0) << unpacked.err.toStdString();
    EXPECT_EQ(unpacked.out, "anfahren.wav\npfiff.wav\ncvlist.dat\n");
    EXPECT_EQ(QDir(path("neu/aus"))
                  .entryList(QDir::Files | QDir::Hidden | QDir::AllDirs | QDir::NoDotAndDotDot),
              QStringList({"anfahren.wav", "cvlist.dat", "pfiff.wav"}));
    EXPECT_EQ(readFile(path("neu/aus/anfahren.wav")), start);
    EXPECT_EQ(readFile(path("neu/aus/pfiff.wav")), whistle);
    EXPECT_EQ(readFile(path("neu/aus/cvlist.dat")), "; Test\r\n1=3\r\n");
}

// Names from someone else's project never write outside the folder, nor through a link, nor
// a file Windows, the shell or Klangor would take for its own: those come out as slot-N.wav.
TEST_F(ProjectCommandLineTest, UnpackWritesOnlySafeNamesIntoItsFolder)
{
    const QStringList kept = {"..\\..\\ausbruch.wav", "link.wav", "COM10.wav", "console.wav",
                              "a.exe.wav"};
    const QStringList refused = {
        "/tmp/x/..",      "sub/",        "a\tb.wav",  ".bashrc",
        ".klangor-tmp-1", "sndburn.exe", "Start.BAT", "x.com",
        "x.cmd",          "run.sh",      "klangor",   "cvdiesele.dat",
        "CVLIST.DAT",     "12.wav",      "a:b.wav",   "a*b",
        "a?.wav",         "\"q\".wav",   "<x>.wav",   "a|b.wav",
        "ende.",          "ende ",       "CON",       "con.wav",
        "COM1.txt",       "lpt9",        "Nul .wav",  QString(252, 'x') + "ä.wav", // 257 bytes
        "AUSBRUCH.wav"}; // another sound's name
    const QStringList slotNames = kept + refused;
    QMap<int, QString> names = {{40, "fehlt.wav"}};
    auto records = test::plainRecords({});
    QStringList written;
    for (int n = 0; n < slotNames.size(); ++n) {
        names[n] = slotNames[n];
        records[n] = {"C:\\K\\" + QByteArray::number(n) + ".wav", "Sound " + QByteArray::number(n)};
        written.append(n < kept.size() ? slotNames[n].section('\\', -1)
                                       : QString("slot-%1.wav").arg(n));
    }
    records[88].second = soundArr(names);
    ASSERT_TRUE(writeFile(path("fremd.spj"), test::projectBytes(records)));
    ASSERT_TRUE(QDir(m_dir.path()).mkpath("aussen") && QDir(m_dir.path()).mkpath("ziel"));
    ASSERT_TRUE(writeFile(path("aussen/ziel.wav"), "bleibt"));
    ASSERT_TRUE(writeFile(path("ziel/.klangor-notizen.txt"), "eigen"));
    ASSERT_EQ(::symlink("../aussen/ziel.wav", QFile::encodeName(path("ziel/link.wav"))), 0);
    // A batch a kill left half-done, whose new files lie behind a link, is not completed.
    ASSERT_TRUE(QDir(m_dir.path()).mkpath("ziel/.klangor-commit-x"));
    ASSERT_EQ(::symlink("../../aussen", QFile::encodeName(path("ziel/.klangor-commit-x/new"))), 0);

    // One a kill left half-done is completed even by a run that is refused.
    ASSERT_TRUE(QDir(m_dir.path()).mkpath("ziel/.klangor-commit-y/new"));
    ASSERT_TRUE(writeFile(path("ziel/.klangor-commit-y/new/halb.wav"), "neu"));

    // Only into an empty or a new folder, unless asked.
    auto before = test::snapshot(path("ziel"));
    before.removeIf([](auto entry) { return entry.key().startsWith(".klangor-commit"); });
    before.insert("halb.wav", "neu mode " + before.value(".klangor-notizen.txt").right(4));
    test::CommandRun run = runCommand({"project", "unpack", path("fremd.spj"), path("ziel")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("„" + path("ziel") + "“ ist nicht leer")) << run.err.toStdString();
    EXPECT_EQ(test::snapshot(path("ziel")), before);

    run = runCommand({"project", "unpack", "--overwrite", path("fremd.spj"), path("ziel")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, written.join('\n') + "\ncvlist.dat\n");
    for (int n = 0; n < slotNames.size(); ++n) {
        EXPECT_EQ(run.err.contains(QString("Soundnummer %1 (").arg(n)), n >= kept.size()) << n;
        EXPECT_EQ(readFile(path("ziel/" + written[n])), "Sound " + QByteArray::number(n));
    }
    EXPECT_TRUE(run.err.contains("Soundnummer 40 („fehlt.wav“) wurde nicht ausgepackt."));
    EXPECT_EQ(run.err.count("klangor: "), refused.size() + 1);
    EXPECT_EQ(readFile(path("aussen/ziel.wav")), "bleibt");
    EXPECT_EQ(QDir(m_dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot) +
                  QDir(path("aussen")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList({"aussen", "fremd.spj", "programm", "ziel", "ziel.wav"}));
    QStringList listed =
        QDir(path("ziel"))
            .entryList(QDir::Files | QDir::Hidden | QDir::Dirs | QDir::NoDotAndDotDot);
    written << "cvlist.dat"
            << ".klangor-notizen.txt"
            << "halb.wav";
    EXPECT_EQ(QSet(listed.begin(), listed.end()), QSet(written.begin(), written.end()));
    EXPECT_FALSE(QFileInfo(path("ziel/link.wav")).isSymLink());
}

TEST_F(ProjectCommandLineTest, FailuresGoToStderrWithExitCodeOne)
{
    auto withoutList = test::plainRecords({});
    withoutList[88].first = "C:\\K\\anders.dat";
    ASSERT_TRUE(writeFile(path("ohne-arr.spj"), test::projectBytes(withoutList)));
    for (const QString folder : {"leer", "halb", "ganz", "fremd"})
        ASSERT_TRUE(QDir(m_dir.path()).mkdir(folder));
    for (const QString folder : {"halb", "ganz", "fremd"})
        ASSERT_TRUE(writeFile(path(folder + "/sound.arr"), soundArr({})));
    ASSERT_TRUE(writeFile(path("halb/sound.arr"), soundArr({{3, "a.wav"}})));
    for (const QString file : {"halb/cvlist.dat", "ganz/cvlist.dat", "geheim", "mein.spj"})
        ASSERT_TRUE(writeFile(path(file), ""));
    ASSERT_TRUE(QFile::link(path("geheim"), path("fremd/cvlist.dat")));
    QList<std::pair<QStringList, QString>> cases = {
        {{"project", "show", path("fehlt.spj")}, "kann nicht geöffnet werden"},
        {{"project", "unpack", path("ohne-arr.spj"), path("aus")}, "enthält keine sound.arr"},
        {{"project", "pack", path("leer"), path("p.spj")}, "sound.arr"},
        {{"project", "pack", path("halb"), path("p.spj")}, "3.wav"},
        {{"project", "pack", path("nichts"), path("p.spj")}, "gibt es nicht"},
        {{"project", "pack", path("fremd"), path("p.spj")}, "Verknüpfung nach außerhalb"},
        {{"project", "pack", path("ganz"), path("mein.spj")}, "„--overwrite“"},
        {{"project", "normalize", path("mein.spj"), path("mein.spj")}, "„--overwrite“"},
    };
    // As root a device node can stand where the project goes; it is never replaced.
    const QByteArray node = QFile::encodeName(path("geraet.spj"));
    const bool device = ::mknod(node.constData(), S_IFCHR | 0666, makedev(1, 3)) == 0;
    if (device)
        cases.append(
            {{"project", "pack", "--overwrite", path("ganz"), path("geraet.spj")}, "ein Gerät"});
    for (const auto &[arguments, reason] : cases) {
        const test::CommandRun run = runCommand(arguments);
        EXPECT_EQ(run.exitCode, 1) << reason.toStdString();
        EXPECT_TRUE(run.out.isEmpty());
        EXPECT_TRUE(run.err.startsWith("klangor: ") && run.err.contains(reason))
            << run.err.toStdString();
    }
    EXPECT_FALSE(QFileInfo::exists(path("p.spj")));
    EXPECT_EQ(readFile(path("mein.spj")), "");
    EXPECT_FALSE(QFileInfo::exists(path("aus")));
    EXPECT_EQ(QDir(path("halb")).entryList(QDir::Files), QStringList({"cvlist.dat", "sound.arr"}));
    struct stat st;
    EXPECT_TRUE(!device || (::lstat(node.constData(), &st) == 0 && S_ISCHR(st.st_mode)));
}

// convert and project unpack on a stick (exFAT, no links): they replace what they are asked to,
// and a kill at any moment leaves the old files or the new ones once the program next writes
// into the folder.
TEST(StickCommandLine, ConvertAndUnpackReplaceFilesAndSurviveKills)
{
    const test::ExfatDisk disk;
    if (disk.path.isEmpty())
        GTEST_SKIP() << "no exFAT file system: " << disk.why.toStdString();
    const QString out = disk.path + "/aus";
    QTemporaryDir in;
    QStringList convert = {"convert", "--overwrite", "-o", out};
    QMap<QString, QByteArray> old;
    StringArray names = StringArray::oneDimensional(0, SlotFileNames::UpperBound);
    auto records = test::plainRecords({});
    for (int i = 0; i < 10; ++i) {
        const QString name = QString("ton%1").arg(i);
        const QByteArray sound = test::makeWav({.sampleRate = 22050, .dataBytes = 2000 + i});
        ASSERT_TRUE(writeFile(in.filePath(name + ".wav"), sound));
        convert.append(in.filePath(name + ".wav"));
        old.insert(name + "_decoder.wav", "alt");
        old.insert(name + ".wav", "alt");
        names.setElement(i, name + ".wav");
        records[i] = {"C:\\K\\" + QByteArray::number(i) + ".wav", sound};
    }
    records[88].second = arrayFileBytes(names).value();
    ASSERT_TRUE(writeFile(in.filePath("lok.spj"), test::projectBytes(records)));
    ASSERT_TRUE(writeFile(in.filePath("weiter.wav"), test::makeWav({})));
    // The next run is another command writing into the folder; its own file is not looked at.
    const auto nextRun = [&] {
        ASSERT_EQ(runCommand({"convert", in.filePath("weiter.wav"), "-o", out}).exitCode, 0);
        QFile::remove(out + "/weiter_decoder.wav");
    };
    const std::function<QMap<QString, QByteArray>()> state = std::bind(test::snapshot, out);

    // An input whose name differs from an output's only in case is that output here.
    ASSERT_TRUE(QDir().mkpath(out) && writeFile(out + "/WEITER_DECODER.wav", "eigen"));
    EXPECT_EQ(runCommand({"convert", "--overwrite", out + "/WEITER_DECODER.wav",
                          in.filePath("weiter.wav"), "-o", out})
                  .exitCode,
              1);
    EXPECT_EQ(readFile(out + "/WEITER_DECODER.wav"), "eigen");

    test::expectOldOrNewAfterKills([&] { runCommand(convert); }, out, old, state, nextRun);
    test::expectOldOrNewAfterKills(
        [&] {
            runCommand({"project", "unpack", "--overwrite", in.filePath("lok.spj"), out});
        },
        out, old, state, nextRun);
}

// A 2 s 1 kHz tone at the decoder's rate, 16 bit.
QByteArray tone(double dbfs)
{
    const WaveFormat format;
    std::vector<double> samples(2 * 11025);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = std::pow(10, dbfs / 20) * std::sin(2 * M_PI * 1000 * double(i) / 11025);
    return waveFileBytes(format, waveSampleBytes(format, samples));
}

// The set matching headless: the sounds of an event move together, the records keep their
// names, a sound that cannot be matched leaves no output at all.
TEST_F(ProjectCommandLineTest, NormalizeMatchesTheEventsAndWritesAllOrNothing)
{
    auto records = test::plainRecords(soundArr({{0, "a.wav"}, {1, "b.wav"}, {4, "c.wav"}}));
    for (const auto &[number, dbfs] : {std::pair(0, -30.0), {1, -24.0}, {4, -12.0}})
        records[number] = {"C:\\K\\" + QByteArray::number(number) + ".wav", tone(dbfs)};
    writeFile(path("in.spj"), test::projectBytes(records));

    test::CommandRun run =
        runCommand({"project", "normalize", "--target=-20", path("in.spj"), path("out.spj")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.startsWith("ziel\t-20.0\nsound\t0\ta.wav\t-33.0\t-30.0\t"));
    EXPECT_TRUE(run.out.contains("\nsound\t4\tc.wav\t-15.0\t-12.0\t-5.0\t-20.0\t-17.0\n"));
    const LoadedProject out = readProjectFile(path("out.spj")).value();
    for (qsizetype i = 0; i < records.size(); ++i)
        EXPECT_EQ(out.records[std::size_t(i)].name.toLatin1(), records[i].first);
    EXPECT_EQ(*out.file("cvlist.dat"), "CV");
    for (const int number : {0, 1, 4})
        writeFile(path(QString("%1.wav").arg(number)), *out.file(workingFileName(number)));
    run = runCommand({"loudness", path("0.wav"), path("1.wav"), path("4.wav")});
    // -33 and -27 LUFS have a power mean of -29.0: both rise by 9 dB.
    EXPECT_EQ(run.out, path("0.wav") + "\t-24.0\t-21.0\n" + path("1.wav") + "\t-18.0\t-15.0\n" +
                           path("4.wav") + "\t-20.0\t-17.0\n");

    // A record the program does not restore is shown around, never written back empty.
    auto foreign = records;
    foreign[50] = {"C:\\K\\liesmich.txt", "x"};
    writeFile(path("fremd.spj"), test::projectBytes(foreign));
    EXPECT_EQ(runCommand({"project", "show", path("fremd.spj")}).exitCode, 0);
    run = runCommand({"project", "normalize", path("fremd.spj"), path("y.spj")});
    EXPECT_TRUE(run.exitCode == 1 && run.err.contains("liesmich.txt")) << run.err.toStdString();

    records[1].second = "kein Ton";
    writeFile(path("in.spj"), test::projectBytes(records));
    run = runCommand({"project", "normalize", path("in.spj"), path("kaputt.spj")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("Soundnummer 1 („b.wav“)") &&
                run.err.contains("Es wurde nichts geschrieben."))
        << run.err.toStdString();
    EXPECT_FALSE(QFile::exists(path("kaputt.spj")));
    EXPECT_EQ(runCommand({"project", "normalize", "--target", "5", path("in.spj"), path("x.spj")})
                  .exitCode,
              2);
}

} // namespace
} // namespace klangor
