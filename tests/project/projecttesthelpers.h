#pragma once

#include <ostream>
#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QRandomGenerator>
#include <QString>
#include <QtEndian>

// Readable QStrings in test failure output.
inline void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace klangor::test {

// Every file below a folder with its bytes, to show that an operation changed nothing.
inline QMap<QString, QByteArray> snapshot(const QString &folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        files.insert(QDir(folder).relativeFilePath(path),
                     file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>"));
    }
    return files;
}

// Bytes that differ from position to position, so a shifted or cut copy is noticed.
inline QByteArray noise(qsizetype size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(generator.generate() & 0xFF);
    return bytes;
}

// A 16-bit mono 11025 Hz WAV image with dataBytes bytes of sample data.
inline QByteArray wave16(qsizetype dataBytes, quint32 seed)
{
    auto put16 = [](QByteArray &out, quint16 v) {
        char b[2];
        qToLittleEndian(v, b);
        out.append(b, 2);
    };
    auto put32 = [](QByteArray &out, quint32 v) {
        char b[4];
        qToLittleEndian(v, b);
        out.append(b, 4);
    };
    QByteArray out("RIFF");
    put32(out, static_cast<quint32>(36 + dataBytes));
    out.append("WAVEfmt ");
    put32(out, 16);
    put16(out, 1);
    put16(out, 1);
    put32(out, 11025);
    put32(out, 22050);
    put16(out, 2);
    put16(out, 16);
    out.append("data");
    put32(out, static_cast<quint32>(dataBytes));
    out.append(noise(dataBytes, seed));
    return out;
}

// Bytes of a 5.9-second 16-bit mono sound at 11025 samples per second.
inline constexpr qsizetype FullSoundDataBytes = 130094; // 65,047 whole samples of two bytes

// Counted string as the files store it, built by hand for the expected bytes of tests.
inline QByteArray counted(const QByteArray &bytes)
{
    QByteArray out;
    char b[4];
    if (bytes.size() < 0xFFFF) {
        qToLittleEndian(static_cast<quint16>(bytes.size()), b);
        out.append(b, 2);
    } else {
        out.append("\xFF\xFF", 2);
        qToLittleEndian(static_cast<quint32>(bytes.size()), b);
        out.append(b, 4);
    }
    return out + bytes;
}

} // namespace klangor::test
