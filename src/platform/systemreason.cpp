#include "platform/systemreason.h"

#include <cerrno>

namespace klangor {

QString systemReason(int errorNumber)
{
    switch (errorNumber) {
    case ENOSPC:
        return QStringLiteral("Auf dem Datenträger ist kein Platz mehr frei.");
    case EDQUOT:
        return QStringLiteral("Das Speicherkontingent ist erschöpft.");
    case EACCES:
        return QStringLiteral("Keine Schreibberechtigung.");
    case EPERM:
        return QStringLiteral("Das Dateisystem erlaubt diesen Schritt nicht.");
    case EOPNOTSUPP:
        return QStringLiteral("Das Dateisystem kann diesen Schritt nicht.");
    case EROFS:
        return QStringLiteral("Der Datenträger ist schreibgeschützt.");
    case ENOENT:
        return QStringLiteral("Die Datei oder der Ordner existiert nicht.");
    case EISDIR:
        return QStringLiteral("An dieser Stelle liegt ein Ordner.");
    case ENODEV:
        return QStringLiteral("An dieser Stelle liegt ein Gerät, keine Datei.");
    case ENOTDIR:
        return QStringLiteral("Ein Teil des Pfades ist kein Ordner.");
    case ENAMETOOLONG:
        return QStringLiteral("Der Name ist zu lang.");
    case EFBIG:
        return QStringLiteral("Die Datei ist zu groß.");
    case EIO:
        return QStringLiteral("Beim Zugriff auf den Datenträger ist ein Fehler aufgetreten.");
    case EMFILE:
    case ENFILE:
        return QStringLiteral("Es sind zu viele Dateien geöffnet.");
    case ELOOP:
        return QStringLiteral("Zu viele verkettete Verknüpfungen.");
    case EEXIST:
        return QStringLiteral("Unter diesem Namen gibt es schon eine Datei.");
    case ENOTEMPTY:
        return QStringLiteral("Der Ordner ist nicht leer.");
    case EBUSY:
    case ETXTBSY:
        return QStringLiteral("Die Datei wird gerade benutzt.");
    default:
        // The system's own text would be English; the number says enough to look it up.
        return QStringLiteral("Systemfehler %1.").arg(errorNumber);
    }
}

} // namespace klangor
