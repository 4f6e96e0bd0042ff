#include "project/arrayfile.h"

#include "platform/codepage.h"
#include "platform/safefile.h"
#include "project/countedstring.h"

#include <QBuffer>
#include <QDir>

namespace klangor {

namespace {

UserMessage tooManyDimensions()
{
    return {QStringLiteral("Zu viele Dimensionen!")};
}

QString shownName(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

UserMessage truncated(const QString &fileName)
{
    return {QStringLiteral("Die Datei „%1“ ist unvollständig oder beschädigt: sie endet, bevor "
                           "alle Einträge gelesen sind.")
                .arg(shownName(fileName))};
}

UserMessage badBounds(const QString &fileName)
{
    return {
        QStringLiteral("Die Datei „%1“ enthält ungültige Feldgrenzen.").arg(shownName(fileName))};
}

Result<StringArray> readArray(QIODevice &device, const QString &fileName)
{
    LittleEndianReader reader(device);
    const auto count = reader.read<qint16>();
    if (!count) {
        // An empty file reads as a count of 0, which yields no bounds at all.
        if (reader.bytesLeft() == 0 && device.size() == 0)
            return badBounds(fileName);
        return truncated(fileName);
    }
    if (*count <= 0)
        return badBounds(fileName);

    // Both bound lists come before the dimension check.
    QList<qint32> lower, upper;
    for (auto *list : {&lower, &upper}) {
        for (int d = 0; d < *count; ++d) {
            const auto bound = reader.read<qint32>();
            if (!bound)
                return truncated(fileName);
            list->append(*bound);
        }
    }
    if (*count > MaxArrayFileDimensions)
        return tooManyDimensions();

    QList<ArrayBounds> bounds;
    for (int d = 0; d < *count; ++d)
        bounds.append({lower.at(d), upper.at(d)});
    const auto elementCount = StringArray::elementCountFor(bounds);
    if (!elementCount)
        return badBounds(fileName);
    // Every element takes at least its two length bytes: a file too short for that is
    // refused before any storage is made for it.
    if (*elementCount > reader.bytesLeft() / 2)
        return truncated(fileName);

    StringArray array(bounds);
    for (qsizetype i = 0; i < array.size(); ++i) {
        const auto text = reader.readCountedString();
        if (!text)
            return truncated(fileName);
        array.setElement(i, fromWindows1252(*text));
    }
    return array;
}

} // namespace

StringArray::StringArray(const QList<ArrayBounds> &bounds)
{
    const auto count = elementCountFor(bounds);
    if (!count)
        return;
    m_bounds = bounds;
    m_elements.resize(*count);
}

StringArray StringArray::oneDimensional(qint32 lower, qint32 upper)
{
    return StringArray(QList<ArrayBounds>{{lower, upper}});
}

std::optional<qint64> StringArray::elementCountFor(const QList<ArrayBounds> &bounds)
{
    if (bounds.isEmpty() || bounds.size() > MaxDimensions)
        return std::nullopt;
    qint64 count = 1;
    for (const ArrayBounds &b : bounds) {
        if (b.upper < b.lower)
            return std::nullopt;
        const qint64 extent = qint64(b.upper) - b.lower + 1;
        if (extent > MaxElements || count * extent > MaxElements)
            return std::nullopt;
        count *= extent;
    }
    return count;
}

std::optional<qsizetype> StringArray::storageIndex(std::initializer_list<qint32> index) const
{
    if (index.size() != static_cast<std::size_t>(m_bounds.size()) || m_bounds.isEmpty())
        return std::nullopt;
    qint64 position = 0;
    qint64 stride = 1;
    auto value = index.begin();
    for (const ArrayBounds &b : m_bounds) {
        if (*value < b.lower || *value > b.upper)
            return std::nullopt;
        position += (qint64(*value) - b.lower) * stride;
        stride *= qint64(b.upper) - b.lower + 1;
        ++value;
    }
    return static_cast<qsizetype>(position);
}

const QString &StringArray::at(std::initializer_list<qint32> index) const
{
    return m_elements.at(storageIndex(index).value());
}

qint16 CountDimensions(const StringArray &value)
{
    return static_cast<qint16>(value.dimensionCount());
}

Result<QByteArray> arrayFileBytes(const StringArray &values)
{
    const qint16 count = CountDimensions(values);
    if (count > MaxArrayFileDimensions)
        return tooManyDimensions();
    if (count == 0)
        return UserMessage{QStringLiteral("Ein Feld ohne Elemente kann nicht gespeichert werden.")};

    QList<QByteArray> encoded;
    encoded.reserve(values.size());
    qint64 total = 2 + 8 * qint64(count);
    for (const QString &element : values.elements()) {
        encoded.append(toWindows1252(element));
        total += countedStringSize(encoded.constLast().size());
    }

    QByteArray bytes;
    bytes.reserve(total);
    appendInt16(bytes, count);
    for (const ArrayBounds &b : values.bounds())
        appendInt32(bytes, b.lower);
    for (const ArrayBounds &b : values.bounds())
        appendInt32(bytes, b.upper);
    for (const QByteArray &element : encoded) {
        if (!appendCountedString(bytes, element))
            return UserMessage{QStringLiteral("Ein Eintrag ist zu lang für eine Felddatei.")};
    }
    return bytes;
}

Status WriteArrayFile(const QString &path, const StringArray &values)
{
    const Result<QByteArray> bytes = arrayFileBytes(values);
    if (!bytes)
        return bytes.error();
    // A whole new file replaces the old one, so no byte of a longer old file survives.
    return writeFileSafely(path, bytes.value());
}

Result<StringArray> parseArrayFile(const QByteArray &bytes, const QString &fileName)
{
    QByteArray copy = bytes; // shared, not copied
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    return readArray(buffer, fileName);
}

} // namespace klangor
