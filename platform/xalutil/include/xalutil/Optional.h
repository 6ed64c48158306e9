#ifndef XALUTIL_OPTIONAL_H
#define XALUTIL_OPTIONAL_H

#include <optional>
#include <stdexcept>
#include <utility>

namespace xalutil {

/// A value that may be absent. Reading an absent one throws, so nobody has to invent a value that means "none".
template <class T>
class Optional {
public:
    Optional() = default;
    explicit Optional(const T& value) : m_value(value) {}
    explicit Optional(T&& value) : m_value(std::move(value)) {}

    void setValue(const T& value) { m_value = value; }
    void setValue(T&& value) { m_value = std::move(value); }
    void reset() { m_value.reset(); }

    bool isValid() const noexcept { return m_value.has_value(); }

    /// Throws std::runtime_error "getValue called on uninitialized Optional" when there is none.
    const T& getValue() const {
        if (!m_value)
            throw std::runtime_error("getValue called on uninitialized Optional");
        return *m_value;
    }

private:
    std::optional<T> m_value;
};

} // namespace xalutil

#endif
