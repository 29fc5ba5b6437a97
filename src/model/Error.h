#pragma once

#include <QString>

#include <utility>
#include <variant>

namespace corvane {

// The domains of the platform's errors that this program passes on. Its own
// errors use "Corvane.History" and "Corvane.ActivityLog"; every other failure
// is named after the facility that reported it, one spelling per facility.
namespace errorDomain {
inline const QString file = QStringLiteral("QFileDevice");
inline const QString process = QStringLiteral("QProcess");
inline const QString textDecoding = QStringLiteral("QStringDecoder");
inline const QString standardPaths = QStringLiteral("QStandardPaths");
} // namespace errorDomain

// A failure as a value: where it came from, a code, and one line for the user.
struct Error {
    QString domain;
    int code = 0;
    QString description;

    bool operator==(const Error&) const = default;
};

// The value of an operation that can fail, or its error. Nothing in this
// program throws across a layer boundary.
template <typename T>
class Result {
public:
    Result(T value) : m_state(std::move(value)) {}
    Result(Error error) : m_state(std::move(error)) {}

    bool ok() const { return std::holds_alternative<T>(m_state); }
    explicit operator bool() const { return ok(); }

    const T& value() const& { return std::get<T>(m_state); }
    T& value() & { return std::get<T>(m_state); }
    T&& value() && { return std::get<T>(std::move(m_state)); }
    const Error& error() const { return std::get<Error>(m_state); }

private:
    std::variant<T, Error> m_state;
};

template <>
class Result<void> {
public:
    Result() = default;
    Result(Error error) : m_error(std::move(error)), m_failed(true) {}

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    const Error& error() const { return m_error; }

private:
    Error m_error;
    bool m_failed = false;
};

} // namespace corvane
