#include "ui/germanqttexts.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

namespace klangor {

bool installGermanQtTexts()
{
    // Dates, numbers and file types in Qt's dialogs follow the locale, not the translation.
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    auto *texts = new QTranslator(QCoreApplication::instance()); // lives as long as the app
    if (texts->load(QStringLiteral("qt_de"), QLibraryInfo::path(QLibraryInfo::TranslationsPath)) &&
        QCoreApplication::installTranslator(texts))
        return true;
    delete texts;
    return false;
}

} // namespace klangor
