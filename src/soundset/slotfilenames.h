#pragma once

#include <array>
#include <QString>

namespace klangor {

// Per sound number 0..87 the name of the assigned WAV file, "" when none. The only record
// of which sound numbers are assigned; 72..87 belong to no slot but travel with projects.
class SlotFileNames
{
public:
    static constexpr int Count = 88;
    static constexpr int UpperBound = Count - 1;

    const QString &at(int soundNumber) const
    {
        return m_names.at(static_cast<std::size_t>(soundNumber));
    }
    void set(int soundNumber, const QString &name)
    {
        m_names.at(static_cast<std::size_t>(soundNumber)) = name;
    }
    bool isAssigned(int soundNumber) const { return !at(soundNumber).isEmpty(); }
    void clear() { m_names.fill(QString()); }

    friend bool operator==(const SlotFileNames &, const SlotFileNames &) = default;

private:
    std::array<QString, Count> m_names;
};

} // namespace klangor
