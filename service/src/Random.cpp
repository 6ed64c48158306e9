#include "Random.h"

#include <openssl/rand.h>

#include <array>
#include <stdexcept>

namespace cdxservice {

namespace {

/// Drawn in blocks: one draw for each identifier would cost more than all else that a POST does.
class Source {
public:
    unsigned char next() {
        if (m_used == m_block.size()) {
            if (RAND_bytes(m_block.data(), static_cast<int>(m_block.size())) != 1) {
                throw std::runtime_error("the system gives no random numbers");
            }
            m_used = 0;
        }
        const unsigned char byte = m_block[m_used];
        m_block[m_used++] = 0;
        return byte;
    }

private:
    std::array<unsigned char, 1024> m_block = {};
    std::size_t m_used = sizeof m_block;
};

unsigned char randomByte() {
    static thread_local Source source;
    return source.next();
}

constexpr char hexDigits[] = "0123456789abcdef";

} // namespace

std::string randomHex(std::size_t digits) {
    std::string text(digits, '0');
    for (char& digit : text) {
        digit = hexDigits[randomByte() & 15];
    }
    return text;
}

std::string randomUuid() {
    std::string uuid = "00000000-0000-4000-8000-000000000000";
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        if (i == 19) {
            uuid[i] = hexDigits[8 + (randomByte() & 3)];
        } else if (uuid[i] == '0') {
            uuid[i] = hexDigits[randomByte() & 15];
        }
    }
    return uuid;
}

} // namespace cdxservice
