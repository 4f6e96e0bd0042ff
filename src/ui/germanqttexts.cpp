#include "ui/germanqttexts.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

namespace klangor {

bool installGermanQtTexts()
{
    auto *texts = new QTranslator(QCoreApplication::instance()); // lives as long as the app
    if (texts->load(QStringLiteral("qt_de"), QLibraryInfo::path(QLibraryInfo::TranslationsPath)) &&
        QCoreApplication::installTranslator(texts))
        return true;
    delete texts;
    return false;
}

} // namespace klangor
