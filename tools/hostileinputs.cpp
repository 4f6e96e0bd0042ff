#include "hostileinputs.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace klangor {

namespace {

constexpr qint64 MB = qint64(1) << 20;

QByteArray counted(const QByteArray &bytes, qint64 claimed = -1)
{
    const qint64 length = claimed < 0 ? bytes.size() : claimed;
    QByteArray out;
    QDataStream count(&out, QIODevice::WriteOnly);
    count.setByteOrder(QDataStream::LittleEndian);
    if (length < 0xFFFF)
        count << quint16(length);
    else
        count << quint16(0xFFFF) << quint32(length);
    return out + bytes;
}

QByteArray record(const QByteArray &name, const QByteArray &data)
{
    return counted(name) + counted(data);
}

// A sound.arr that assigns name to sound number 0 and leaves the others empty.
QByteArray soundArr(const QByteArray &name)
{
    QByteArray out;
    QDataStream s(&out, QIODevice::WriteOnly);
    s.setByteOrder(QDataStream::LittleEndian);
    s << qint16(1) << qint32(0) << qint32(87);
    out += counted(name);
    for (int i = 1; i < 88; ++i)
        out += counted({});
    return out;
}

QByteArray waveHeader(quint32 riffSize)
{
    QByteArray out = "RIFF";
    QDataStream s(&out, QIODevice::Append);
    s.setByteOrder(QDataStream::LittleEndian);
    s << riffSize;
    out += "WAVEfmt ";
    s << quint32(16) << quint16(1) << quint16(1) << quint32(11025) << quint32(22050) << quint16(2)
      << quint16(16);
    return out;
}

// bytes, then zeros up to size (a hole where the file system allows).
bool write(const QString &path, const QByteArray &bytes, qint64 size = -1)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(bytes) == bytes.size() && (size < 0 || file.resize(size));
}

QByteArray plainRecords(int count)
{
    QByteArray out;
    for (int i = 0; i < count; ++i)
        out += record("C:\\K\\placeholder.dat", {});
    return out;
}

} // namespace

QList<HostileInput> writeHostileInputs(const QString &folder)
{
    const QDir dir(folder);
    using Kind = HostileInput::Kind;
    QList<HostileInput> made;
    bool ok = true;
    const auto add = [&](const QString &name, const QString &file, Kind kind,
                         const QByteArray &bytes, qint64 size = -1) {
        // "<h1>BIG</h1>.spj" lies in a folder "<h1>BIG<".
        ok = ok && QFileInfo(dir.filePath(file)).dir().mkpath(QStringLiteral(".")) &&
             write(dir.filePath(file), bytes, size);
        made.append({name, dir.filePath(file), kind});
    };
    const QByteArray arr = record("C:\\K\\sound.arr", soundArr("a.wav"));
    const QByteArray cv = record("C:\\K\\cvlist.dat", "CV1=3\r\n");

    // 88 names of 2.7 MB each: only the first length is ever looked at.
    add("88 Eintragsnamen von 2,7 MB", "names-2.7MB.spj", Kind::Project,
        counted({}, qint64(27) * MB / 10), 88 * 27 * MB / 10);
    QByteArray longNames;
    for (int i = 0; i < 88; ++i)
        longNames += record(QByteArray(10000, char('a' + i % 26)), "x");
    add("88 Eintragsnamen von 10.000 Zeichen", "names-10000.spj", Kind::Project,
        longNames + arr + cv);
    // Names just within the limit: the project opens and names them in its message.
    QByteArray manyNames;
    for (int i = 0; i < 88; ++i)
        manyNames += record("C:\\" + QByteArray(250, 'W') + QByteArray::number(i) + ".txt", "x");
    add("88 fremde Eintragsnamen von 259 Zeichen", "names-259.spj", Kind::Project,
        manyNames + arr + cv);
    add("CV-Liste von 100 MB", "cvlist-100MB.spj", Kind::Project,
        plainRecords(88) + arr + counted("C:\\K\\cvlist.dat") + counted({}, 100 * MB),
        100 * MB + 10000);
    add("CV-Liste von 20 MB in einer Zeile", "cvlist-20MB.spj", Kind::Project,
        plainRecords(88) + arr + record("C:\\K\\cvlist.dat", QByteArray(20 * MB, '1')));
    add("CV-Liste von 256 kB in einer Zeile", "cvlist-256kB-line.spj", Kind::Project,
        plainRecords(88) + arr + record("C:\\K\\cvlist.dat", QByteArray(MB / 4, '1')));
    QByteArray lines;
    while (lines.size() < MB / 4 - 24)
        lines += "CV123=255 ; Kommentar\r\n";
    add("CV-Liste von 256 kB kurzer Zeilen", "cvlist-256kB-lines.spj", Kind::Project,
        plainRecords(88) + arr + record("C:\\K\\cvlist.dat", lines));
    // Empty chunks read as zeros: a sparse file is millions of them.
    add("0.wav aus 200 MB leerer Abschnitte", "0wav-200MB.spj", Kind::Project,
        counted("C:\\K\\0.wav") + counted(waveHeader(200 * MB), 200 * MB), 201 * MB);
    add("0.wav aus 4 MB leerer Abschnitte", "0wav-4MB.spj", Kind::Project,
        record("C:\\K\\0.wav", waveHeader(4 * MB - 8) + QByteArray(4 * MB - 36, '\0')) +
            plainRecords(87) + arr + cv);
    add("Name als Überschrift", "<h1>BIG</h1>.spj", Kind::Project, "kaputt");
    add("Name als riesiges Bild", "<img width=20000 height=20000 src=x>.spj", Kind::Project,
        "kaputt");
    add("Name von 250 Zeichen", QString(246, QLatin1Char('W')) + ".spj", Kind::Project, "kaputt");
    add("dünn besetzte RIFF-Datei von 1 GB", "sparse-1GB.wav", Kind::Sound,
        waveHeader(0xFFFFFFF0u).left(12), 1024 * MB);
    add("WAV mit 200 MB leerer Abschnitte", "empty-chunks-200MB.wav", Kind::Sound,
        waveHeader(0xFFFFFFF0u), 200 * MB);
    add("dünn besetzte RIFF-Datei von 4 GB", "sparse-4GB.wav", Kind::Sound,
        waveHeader(0xFFFFFFF0u).left(12), 4096 * MB);
    return ok ? made : QList<HostileInput>();
}

} // namespace klangor
