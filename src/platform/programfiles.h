#pragma once

#include <QString>
#include <QStringList>

namespace klangor {

// The names of everything the program keeps in its program folder, in one place.

// "12.wav": the working file of a sound number, without folder.
inline QString workingFileName(int soundNumber)
{
    return QString::number(soundNumber) + QStringLiteral(".wav");
}

// A working file holds a sound the decoder takes: at most 5.9 s of 11025 Hz mono, some
// 130 kB of samples. Larger files are neither copied in nor restored from a project, so that
// playing or checking a working file is always quick.
inline constexpr qint64 MaxWorkingFileBytes = qint64(4) << 20;

// Written for the programming tools and into projects.
inline const QString SoundListFileName = QStringLiteral("soundlist.dat");
inline const QString CvListFileName = QStringLiteral("cvlist.dat");
inline const QString SoundArrFileName = QStringLiteral("sound.arr");
inline const QString PlaceholderFileName = QStringLiteral("placeholder.dat");

// The CV default files of the three locomotive types, delivered beside the program.
inline const QString CvDieselFileName = QStringLiteral("cvdiesele.dat");
inline const QString CvSteamFileName = QStringLiteral("cvdampf.dat");
inline const QString CvSelectrixFileName = QStringLiteral("cvselectrix.dat");

inline QStringList cvDefaultFileNames()
{
    return {CvDieselFileName, CvSteamFileName, CvSelectrixFileName};
}

// The programming tools: the sound tool, and the CV-only tool for Selectrix.
inline const QString SoundToolFileName = QStringLiteral("sndburn.exe");
inline const QString CvToolFileName = QStringLiteral("cvburn.exe");
// Runs them under wine and hands on their whole exit code; lies beside the program.
inline const QString LauncherFileName = QStringLiteral("klangor-launch.exe");

// The program itself, as installed.
inline const QString ProgramFileName = QStringLiteral("klangor");

// Every name the program keeps beside it or in its program folder (working files included);
// a file from elsewhere never takes one of them.
inline QStringList programOwnFileNames()
{
    QStringList names = {SoundListFileName, CvListFileName, SoundArrFileName, PlaceholderFileName,
                         SoundToolFileName, CvToolFileName, LauncherFileName, ProgramFileName};
    names += cvDefaultFileNames();
    for (int n = 0; n <= 87; ++n)
        names.append(workingFileName(n));
    return names;
}

// Temporaries and staging folders of the file writers start with this; whatever a killed run
// left behind under this prefix is cleared at the next start.
inline const QString SafeFilePrefix = QStringLiteral(".klangor-");

// Takes converted sounds when the original's folder cannot.
inline const QString ConvertedFolderName = QStringLiteral("umgewandelt");

} // namespace klangor
