#pragma once

#include <QString>
#include <utility>
#include <variant>

namespace klangor {

// Error numbers the way the program has always reported them: the array module's own error
// and the runtime numbers of the failures it passes on.
namespace ErrorNumber {
inline constexpr qint32 TooManyDimensions = -2147221404; // hex 80040064
inline constexpr qint32 SubscriptOutOfRange = 9;
inline constexpr qint32 FileNotFound = 53;
inline constexpr qint32 InputPastEndOfFile = 62;
inline constexpr qint32 PathFileAccess = 75;
inline constexpr qint32 BadFileFormat = 321;
} // namespace ErrorNumber

// A failure with its number and a German text that can be shown to the user as it is.
struct ProjectError
{
    qint32 number = 0;
    QString description;

    friend bool operator==(const ProjectError &, const ProjectError &) = default;
};

// Either a value or the error that prevented it. Nothing is thrown anywhere in this module.
template <typename T> class [[nodiscard]] Result
{
public:
    Result(T value) : m_state(std::move(value)) {}
    Result(ProjectError error) : m_state(std::move(error)) {}

    bool ok() const { return std::holds_alternative<T>(m_state); }
    explicit operator bool() const { return ok(); }
    const T &value() const & { return std::get<T>(m_state); }
    T &value() & { return std::get<T>(m_state); }
    T &&value() && { return std::get<T>(std::move(m_state)); }
    const ProjectError &error() const { return std::get<ProjectError>(m_state); }

private:
    std::variant<T, ProjectError> m_state;
};

// Success or the error; for operations whose only product is a file.
class [[nodiscard]] Status
{
public:
    Status() = default;
    Status(ProjectError error) : m_error(std::move(error)), m_failed(true) {}

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    const ProjectError &error() const { return m_error; }

private:
    ProjectError m_error;
    bool m_failed = false;
};

} // namespace klangor
