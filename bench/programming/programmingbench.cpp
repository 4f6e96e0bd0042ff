// CPU time of this program while a programming run waits for a 5-second tool.
// The tool's own time is not counted: it is another process.
#include "platform/programfiles.h"
#include "platform/toolprocess.h"
#include "programming/programmingrun.h"

#include <cstdio>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <sys/resource.h>

namespace {

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

bool copyInto(const QString &from, const QString &to)
{
    QFile::remove(to);
    return QFile::copy(from, to) &&
           QFile::setPermissions(to, QFile::permissions(from) | QFile::ExeOwner);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QDir bin(QCoreApplication::applicationDirPath());
    QTemporaryDir folder;
    if (!folder.isValid() ||
        !copyInto(bin.filePath(klangor::SoundToolFileName),
                  folder.filePath(klangor::SoundToolFileName)) ||
        !copyInto(bin.filePath(klangor::CvDieselFileName),
                  folder.filePath(klangor::CvListFileName))) {
        std::fprintf(stderr, "cannot prepare the program folder from %s\n", qPrintable(bin.path()));
        return 1;
    }
    qputenv("KLANGOR_STANDIN_SECONDS", "5");
    qputenv("KLANGOR_STANDIN_EXIT", "0");

    klangor::ProgrammingRun run(folder.path(), [] { return klangor::createSystemToolProcess({}); });
    // Ticks as the window's timer gives them, so their cost is counted too.
    QTimer timer;
    timer.setInterval(100);
    QObject::connect(&timer, &QTimer::timeout, &run, &klangor::ProgrammingRun::tick);
    QObject::connect(&run, &klangor::ProgrammingRun::timerActiveChanged, &timer,
                     [&timer](bool active) { active ? timer.start() : timer.stop(); });
    QString status;
    QObject::connect(&run, &klangor::ProgrammingRun::statusTextChanged, &run,
                     [&status](const QString &text) { status = text; });
    int ticks = 0;
    QObject::connect(&run, &klangor::ProgrammingRun::progressValueChanged, &run,
                     [&ticks] { ++ticks; });

    klangor::SlotFileNames names;
    QElapsedTimer wall;
    const double cpuBefore = cpuSeconds();
    wall.start();
    auto outcome = klangor::ProgrammingRun::Outcome::Failed;
    QObject::connect(&run, &klangor::ProgrammingRun::finished, &app,
                     [&outcome](klangor::ProgrammingRun::Outcome ended) {
                         outcome = ended;
                         QCoreApplication::quit();
                     });
    run.start(names, 16, [] { return klangor::toolCommand(false, 1); });
    if (run.isRunning())
        QCoreApplication::exec();
    const double wallSeconds = static_cast<double>(wall.elapsed()) / 1000.0;
    const double cpu = cpuSeconds() - cpuBefore;

    std::printf("status: %s\n", qPrintable(status));
    std::printf("wall: %.2f s, ticks: %d, own CPU: %.4f s\n", wallSeconds, ticks, cpu);
    std::printf("CPU use while waiting: %.3f %% of one core (target < 2 %%)\n",
                100.0 * cpu / wallSeconds);
    return outcome == klangor::ProgrammingRun::Outcome::Done ? 0 : 2;
}
