#pragma once

#include "common/result.h"

namespace klangor {

class MessagePresenter
{
public:
    virtual ~MessagePresenter() = default;
    // Shows the message with an OK button only; returns when the user has closed it.
    virtual void show(const UserMessage &message) = 0;
};

} // namespace klangor
