// Times "Speicher unter..." and "Öff&nen" of a project with all 72 sounds at full length
// (5.9 s, 16-bit mono, 11025 Hz), the largest project the window can make.
#include "common/wavewriter.h"
#include "project/projectcommands.h"

#include <algorithm>
#include <cstdio>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <vector>

namespace {

using namespace klangor;

constexpr qsizetype SoundDataBytes = 130094; // 65,047 samples of two bytes: 5.9 seconds
constexpr int Runs = 5;

QByteArray sound(quint32 seed)
{
    QByteArray samples(SoundDataBytes, '\0');
    quint32 state = seed * 2654435761u + 1;
    for (char &c : samples) {
        state = state * 1664525u + 1013904223u;
        c = static_cast<char>(state >> 24);
    }
    return waveFileBytes({1, 11025, 16}, samples);
}

class BenchHost final : public ProjectHost
{
public:
    explicit BenchHost(QString folder) : m_folder(std::move(folder)) {}
    QString programFolder() const override { return m_folder; }
    const SlotFileNames &slotFileNames() const override { return names; }
    void setSlotFileNames(const SlotFileNames &n) override { names = n; }
    QString projectPath() const override { return path; }
    void setProjectPath(const QString &p) override { path = p; }
    QString cvText() const override { return QStringLiteral("CV1=3\nCV2=5\n"); }
    void setCvText(const QString &) override {}
    void refreshEventView() override {}
    void setMousePointer(MousePointer) override {}
    void runLongWork(const QString &,
                     const std::function<void(const ConversionProgress &)> &work) override
    {
        work({});
    }
    void showMessage(const UserMessage &message) override
    {
        std::fprintf(stderr, "Meldung: %s\n", qPrintable(message.text));
        failed = true;
    }

    SlotFileNames names;
    QString path;
    bool failed = false;

private:
    QString m_folder;
};

class ScriptedDialogs final : public ProjectDialogs
{
public:
    QString ShowOpenDialog(const FileFilter &, const QString &, const QString &) override
    {
        return answer;
    }
    QString ShowSaveDialog(const FileFilter &, const QString &, const QString &) override
    {
        return answer;
    }
    QString answer;
};

double milliseconds(const QElapsedTimer &timer)
{
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir program;
    QTemporaryDir projects;
    if (!program.isValid() || !projects.isValid())
        return 1;

    auto ownedHost = std::make_unique<BenchHost>(program.path());
    BenchHost &host = *ownedHost;
    ScriptedDialogs dialogs;
    ProjectCommands commands(std::move(ownedHost), dialogs);
    for (int n = 0; n < 72; ++n) {
        QFile file(QDir(program.path()).filePath(QStringLiteral("%1.wav").arg(n)));
        if (!file.open(QIODevice::WriteOnly) || file.write(sound(static_cast<quint32>(n))) < 0)
            return 1;
        host.names.set(n, QStringLiteral("sound%1.wav").arg(n));
    }
    const SlotFileNames assigned = host.names;

    std::vector<double> saves, opens;
    const QString projectFile = projects.filePath(QStringLiteral("voll.spj"));
    for (int run = 0; run < Runs; ++run) {
        dialogs.answer = projectFile;
        QElapsedTimer timer;
        timer.start();
        commands.saveAs();
        saves.push_back(milliseconds(timer));

        host.names = SlotFileNames();
        timer.restart();
        commands.open();
        opens.push_back(milliseconds(timer));
        if (host.failed || !(host.names == assigned)) {
            std::fprintf(stderr, "Projekt nicht wiederhergestellt\n");
            return 1;
        }
    }

    std::sort(saves.begin(), saves.end());
    std::sort(opens.begin(), opens.end());
    std::printf("Projekt: 72 Sounds zu %lld Bytes, Datei %lld Bytes, %d Durchgänge\n",
                static_cast<long long>(sound(0).size()),
                static_cast<long long>(QFile(projectFile).size()), Runs);
    std::printf("Speichern: Median %.1f ms, längster %.1f ms\n", saves[Runs / 2], saves.back());
    std::printf("Öffnen:    Median %.1f ms, längster %.1f ms\n", opens[Runs / 2], opens.back());
    const bool fastEnough = saves.back() < 200.0 && opens.back() < 200.0;
    std::printf("Ziel unter 200 ms: %s\n", fastEnough ? "erreicht" : "verfehlt");
    return fastEnough ? 0 : 2;
}
