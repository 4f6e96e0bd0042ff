#pragma once

#include <QList>
#include <QString>

namespace klangor {

// Files a hostile sharer might hand out, to try the program against: oversized names and CV
// lists in projects, WAVs whose chunk walk never ends, names that read as markup.
struct HostileInput
{
    enum class Kind
    {
        Project, // opened as a sound project
        Sound    // put into a slot, played and checked
    };
    QString name; // what it tries, as a short phrase
    QString path;
    Kind kind;
};

// Writes every case into folder (large ones sparse where the bytes do not matter); empty
// when a file could not be written.
QList<HostileInput> writeHostileInputs(const QString &folder);

} // namespace klangor
