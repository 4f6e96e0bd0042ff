#include "platform/soundfile.h"

#include "common/riffchunks.h"

#include <map>
#include <sndfile.h>

namespace klangor {

namespace {

// libsndfile walks a WAV's chunks to its data chunk without limit; a file with millions of
// empty chunks before it is no sound, and is not handed over.
bool tooManyChunks(QIODevice &file)
{
    const QByteArray header = file.read(12);
    if (header.size() < 12 || header.mid(8, 4) != "WAVE" ||
        !(header.startsWith("RIFF") || header.startsWith("RIFX") || header.startsWith("RF64")))
        return false;
    RiffChunks chunks(file);
    while (const auto chunk = chunks.next()) {
        if (chunk->id == "data")
            return false;
    }
    return chunks.tooMany();
}

} // namespace

// libsndfile reads the file through these callbacks, at a position of its own.
struct SoundFile::Open
{
    RegularFile file;
    sf_count_t position = 0;
    SF_INFO info{};
    SNDFILE *sound = nullptr;

    ~Open()
    {
        if (sound)
            sf_close(sound);
    }

    static Open &self(void *user) { return *static_cast<Open *>(user); }
    static sf_count_t length(void *user) { return self(user).file.size(); }
    static sf_count_t tell(void *user) { return self(user).position; }
    static sf_count_t write(const void *, sf_count_t, void *) { return 0; }
    static sf_count_t seek(sf_count_t offset, int whence, void *user)
    {
        Open &open = self(user);
        const sf_count_t base = whence == SEEK_CUR   ? open.position
                                : whence == SEEK_END ? open.file.size()
                                                     : 0;
        if (base + offset < 0)
            return -1;
        open.position = base + offset; // past the end, as lseek allows; reads then find nothing
        return open.position;
    }
    static sf_count_t read(void *target, sf_count_t count, void *user)
    {
        Open &open = self(user);
        if (open.position >= open.file.size() || !open.file.seek(open.position))
            return 0;
        const qint64 n = open.file.read(static_cast<char *>(target), count);
        if (n <= 0)
            return 0;
        open.position += n;
        return n;
    }
};

SoundFile::SoundFile() = default;
SoundFile::~SoundFile() = default;

Status SoundFile::open(const QString &path)
{
    m_open = std::make_unique<Open>();
    if (const Status opened = m_open->file.openFile(path); !opened)
        return opened;
    if (tooManyChunks(m_open->file))
        return {};
    SF_VIRTUAL_IO io{Open::length, Open::seek, Open::read, Open::write, Open::tell};
    m_open->sound = sf_open_virtual(&io, SFM_READ, &m_open->info, m_open.get());
    return {};
}

bool SoundFile::isSound() const
{
    return m_open && m_open->sound;
}

bool SoundFile::withinLimits() const
{
    return isSound() && channels() >= 1 && channels() <= MaxChannels &&
           sampleRate() >= MinSampleRate && sampleRate() <= MaxSampleRate;
}

int SoundFile::channels() const
{
    return m_open->info.channels;
}

int SoundFile::sampleRate() const
{
    return m_open->info.samplerate;
}

qint64 SoundFile::frames() const
{
    return m_open->info.frames;
}

SoundFile::Container SoundFile::container() const
{
    switch (m_open->info.format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
        return Container::RiffWave;
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_RF64:
        return Container::OtherWave;
    default:
        return Container::Other;
    }
}

SoundFile::Samples SoundFile::samples() const
{
    switch (m_open->info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_U8:
        return Samples::Unsigned8;
    case SF_FORMAT_PCM_16:
        return Samples::Signed16;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
        return Samples::Floating;
    default:
        return Samples::Other;
    }
}

qint64 SoundFile::read(double *out, qint64 count)
{
    return sf_readf_double(m_open->sound, out, count);
}

qint64 SoundFile::read(float *out, qint64 count)
{
    return sf_readf_float(m_open->sound, out, count);
}

qint64 SoundFile::read(qint16 *out, qint64 count)
{
    return sf_readf_short(m_open->sound, out, count);
}

bool SoundFile::damaged() const
{
    return !m_open->file.readStatus() || sf_error(m_open->sound) != SF_ERR_NO_ERROR;
}

RegularFile &SoundFile::file()
{
    return m_open->file;
}

QStringList readableSoundExtensions()
{
    // Header-less data says nothing about itself, and ".mat" is far more often a Matlab data
    // file than a sound.
    static const QStringList left = {QStringLiteral("raw"), QStringLiteral("mat")};
    static const std::map<QString, QStringList> otherSpellings = {
        {QStringLiteral("aiff"), {QStringLiteral("aif"), QStringLiteral("aifc")}},
        {QStringLiteral("au"), {QStringLiteral("snd")}},
        {QStringLiteral("iff"), {QStringLiteral("svx")}},
        {QStringLiteral("m1a"), {QStringLiteral("mp3"), QStringLiteral("mp2")}},
        {QStringLiteral("oga"), {QStringLiteral("ogg"), QStringLiteral("opus")}},
    };
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
    QStringList extensions;
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO format{};
        format.format = i;
        if (sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &format, sizeof format) != 0 ||
            !format.extension)
            continue;
        const QString extension = QString::fromLatin1(format.extension).toLower();
        if (left.contains(extension))
            continue;
        extensions << extension;
        if (const auto more = otherSpellings.find(extension); more != otherSpellings.end())
            extensions << more->second;
    }
    extensions.sort();
    extensions.removeDuplicates();
    return extensions;
}

} // namespace klangor
