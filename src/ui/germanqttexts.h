#pragma once

namespace klangor {

// Makes German the locale of the running application and loads Qt's own German texts (file
// dialogs, buttons, context menus), whatever the system's locale: the whole interface is
// German. False when Qt's German translations are not installed.
bool installGermanQtTexts();

} // namespace klangor
