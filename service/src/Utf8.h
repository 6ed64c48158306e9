#ifndef SERVICE_SRC_UTF8_H
#define SERVICE_SRC_UTF8_H

#include <cstdint>
#include <string_view>

namespace cdxservice {

/// Checks a text that comes in pieces; knows at the first byte that cannot be part of UTF-8.
class Utf8Checker {
public:
    /// False once the text is not UTF-8; a character may be unfinished.
    bool take(std::string_view bytes);
    /// Whether no character is unfinished.
    bool complete() const { return m_missing == 0; }

private:
    int m_missing = 0;
    std::uint8_t m_lowest = 0x80; ///< Bounds of the next continuation byte.
    std::uint8_t m_highest = 0xbf;
};

} // namespace cdxservice

#endif
