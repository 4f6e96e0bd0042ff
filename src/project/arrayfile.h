#pragma once

#include "common/result.h"

#include <initializer_list>
#include <optional>
#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace klangor {

struct ArrayBounds
{
    qint32 lower = 0;
    qint32 upper = 0;

    friend bool operator==(const ArrayBounds &, const ArrayBounds &) = default;
};

// A string array of any number of dimensions with signed 32-bit bounds per dimension, kept in
// storage order: the first index changes fastest. An array without dimensions has no storage.
class StringArray
{
public:
    static constexpr int MaxDimensions = 60;
    static constexpr qint64 MaxElements = qint64(1) << 27;

    StringArray() = default;
    // All elements empty. Bounds with an upper below its lower bound, more than MaxDimensions
    // or more than MaxElements elements give an array without storage.
    explicit StringArray(const QList<ArrayBounds> &bounds);
    static StringArray oneDimensional(qint32 lower, qint32 upper);

    // nullopt for bounds that no array can have (see the constructor).
    static std::optional<qint64> elementCountFor(const QList<ArrayBounds> &bounds);

    int dimensionCount() const { return static_cast<int>(m_bounds.size()); }
    const QList<ArrayBounds> &bounds() const { return m_bounds; }
    qsizetype size() const { return m_elements.size(); }

    // Position in storage order of an index with one entry per dimension; nullopt when out of
    // range.
    std::optional<qsizetype> storageIndex(std::initializer_list<qint32> index) const;
    const QString &at(std::initializer_list<qint32> index) const;

    const QStringList &elements() const { return m_elements; }
    void setElement(qsizetype storageIndex, const QString &value)
    {
        m_elements[storageIndex] = value;
    }

    friend bool operator==(const StringArray &, const StringArray &) = default;

private:
    QList<ArrayBounds> m_bounds;
    QStringList m_elements;
};

inline constexpr int MaxArrayFileDimensions = 10;
// Larger files are refused before they are read into memory.
inline constexpr qint64 MaxArrayFileBytes = qint64(256) << 20;

// Number of dimensions, 0 for an array without storage.
qint16 CountDimensions(const StringArray &value);

// Writes the whole file or nothing: more than ten dimensions and arrays without storage are
// refused before the file is touched; an existing file is replaced whole.
Status WriteArrayFile(const QString &path, const StringArray &values);

// The array file image, as WriteArrayFile would write it.
Result<QByteArray> arrayFileBytes(const StringArray &values);
// Reads an array file image held in memory; fileName only names it in error texts.
Result<StringArray> parseArrayFile(const QByteArray &bytes, const QString &fileName);

} // namespace klangor
