#pragma once

#include <QString>
#include <utility>
#include <variant>

namespace klangor {

enum class MessageIcon
{
    None,
    Critical
};

// A message for the user, in German and ready to show. Core code only returns it; the window
// turns it into a modal box, filling in the title of its command when the message has none.
struct UserMessage
{
    UserMessage() = default;
    UserMessage(QString text_, QString title_ = {}, MessageIcon icon_ = MessageIcon::Critical)
        : text(std::move(text_)), title(std::move(title_)), icon(icon_)
    {}

    QString text;
    QString title;
    MessageIcon icon = MessageIcon::Critical;

    friend bool operator==(const UserMessage &, const UserMessage &) = default;
};

// Either a value or the message that tells why there is none. Nothing is thrown.
template <typename T> class [[nodiscard]] Result
{
public:
    Result(T value) : m_state(std::move(value)) {}
    Result(UserMessage error) : m_state(std::move(error)) {}

    bool ok() const { return std::holds_alternative<T>(m_state); }
    explicit operator bool() const { return ok(); }
    const T &value() const & { return std::get<T>(m_state); }
    T &value() & { return std::get<T>(m_state); }
    T &&value() && { return std::get<T>(std::move(m_state)); }
    const UserMessage &error() const { return std::get<UserMessage>(m_state); }

private:
    std::variant<T, UserMessage> m_state;
};

// Success or the message; for operations whose only product is a change on disk.
class [[nodiscard]] Status
{
public:
    Status() = default;
    Status(UserMessage error) : m_error(std::move(error)), m_failed(true) {}

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    const UserMessage &error() const { return m_error; }

private:
    UserMessage m_error;
    bool m_failed = false;
};

} // namespace klangor
