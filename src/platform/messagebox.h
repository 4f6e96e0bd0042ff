#pragma once

#include <QString>

namespace klangor {

enum class MessageIcon
{
    None,
    Critical
};

// A message for the user: only the window turns it into a modal box.
struct UserMessage
{
    QString text;
    QString title;
    MessageIcon icon = MessageIcon::Critical;

    friend bool operator==(const UserMessage &, const UserMessage &) = default;
};

class MessagePresenter
{
public:
    virtual ~MessagePresenter() = default;
    // Shows the message with an OK button only; returns when the user has closed it.
    virtual void show(const UserMessage &message) = 0;
};

} // namespace klangor
