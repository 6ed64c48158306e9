#include "Utf8.h"

namespace cdxservice {

bool Utf8Checker::take(std::string_view bytes) {
    for (const char c : bytes) {
        const std::uint8_t byte = static_cast<std::uint8_t>(c);
        if (m_missing > 0) {
            if (byte < m_lowest || byte > m_highest) {
                return false;
            }
            --m_missing;
            m_lowest = 0x80;
            m_highest = 0xbf;
        } else if (byte >= 0x80) {
            if (byte < 0xc2 || byte > 0xf4) {
                return false;
            }
            m_missing = byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
            // Overlong forms, surrogates and what lies beyond U+10FFFF show in the second byte.
            if (byte == 0xe0) {
                m_lowest = 0xa0;
            } else if (byte == 0xed) {
                m_highest = 0x9f;
            } else if (byte == 0xf0) {
                m_lowest = 0x90;
            } else if (byte == 0xf4) {
                m_highest = 0x8f;
            }
        }
    }
    return true;
}

} // namespace cdxservice
