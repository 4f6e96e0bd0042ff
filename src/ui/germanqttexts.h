#pragma once

namespace klangor {

// Loads Qt's own German texts (file dialogs, buttons, context menus) into the running
// application, whatever the locale: the whole interface is German. False when Qt's German
// translations are not installed.
bool installGermanQtTexts();

} // namespace klangor
