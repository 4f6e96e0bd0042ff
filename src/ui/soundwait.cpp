#include "ui/soundwait.h"

#include "playback/soundservice.h"

#include <memory>
#include <QEventLoop>
#include <QPointer>

namespace klangor {

void waitUntilSoundsHeard(SoundService &sound)
{
    QEventLoop wait;
    // The loop can also end without it (the application quits); a late call finds nothing.
    auto heard = std::make_shared<bool>(false);
    sound.WhenSoundsHeard([heard, loop = QPointer<QEventLoop>(&wait)] {
        *heard = true;
        if (loop)
            loop->quit();
    });
    if (!*heard)
        wait.exec(QEventLoop::ExcludeUserInputEvents);
}

} // namespace klangor
