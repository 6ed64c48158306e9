#include "WebSocketFrames.h"

#include <openssl/evp.h>

#include <array>

namespace cdxtest {

namespace {

// Any key does; one that differs in all four bytes shows a mask applied at the wrong offset.
constexpr std::array<unsigned char, 4> maskKey = {0x37, 0xfa, 0x21, 0x3d};

void appendNumber(std::string& out, std::uint64_t number, unsigned bytes) {
    for (unsigned shift = bytes * 8; shift > 0; shift -= 8)
        out += static_cast<char>((number >> (shift - 8)) & 0xff);
}

std::uint64_t numberAt(const std::string& bytes, std::size_t at, unsigned count) {
    std::uint64_t number = 0;
    for (unsigned i = 0; i < count; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
    return number;
}

template <class Key>
void applyMask(std::string& payload, const Key& key) {
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<char>(static_cast<unsigned char>(payload[i]) ^ static_cast<unsigned char>(key[i % 4]));
}

} // namespace

std::string encode(const Frame& frame, bool masking) {
    const bool masked = frame.masked.value_or(masking);
    const std::uint64_t length = frame.claimedLength.value_or(frame.payload.size());
    const unsigned form = frame.lengthBytes != 0 ? frame.lengthBytes : length < 126 ? 0 : length < 65536 ? 2 : 8;
    std::string out;
    out.reserve(frame.payload.size() + 14);
    out += static_cast<char>((frame.fin ? 0x80U : 0U) | frame.reserved << 4 | frame.opcode);
    const unsigned short7 = form == 0 ? static_cast<unsigned>(length) : form == 2 ? 126U : 127U;
    out += static_cast<char>((masked ? 0x80U : 0U) | short7);
    appendNumber(out, length, form);
    std::string payload = frame.payload;
    if (masked) {
        out.append(maskKey.begin(), maskKey.end());
        applyMask(payload, maskKey);
    }
    return out += payload;
}

std::optional<Frame> takeFrame(std::string& bytes) {
    if (bytes.size() < 2)
        return std::nullopt;
    const auto first = static_cast<unsigned char>(bytes[0]);
    const auto second = static_cast<unsigned char>(bytes[1]);
    const unsigned short7 = second & 0x7fU;
    const unsigned form = short7 == 126 ? 2 : short7 == 127 ? 8 : 0;
    const bool masked = (second & 0x80U) != 0;
    const std::size_t head = 2 + form + (masked ? 4 : 0);
    if (bytes.size() < head)
        return std::nullopt;
    const std::uint64_t length = form == 0 ? short7 : numberAt(bytes, 2, form);
    if (bytes.size() - head < length)
        return std::nullopt;
    Frame frame;
    frame.fin = (first & 0x80U) != 0;
    frame.reserved = first >> 4 & 7U;
    frame.opcode = first & 15U;
    frame.masked = masked;
    frame.lengthBytes = form;
    frame.payload = bytes.substr(head, length);
    if (masked)
        applyMask(frame.payload, bytes.substr(head - 4, 4));
    bytes.erase(0, head + length);
    return frame;
}

std::string closePayload(unsigned code, std::string_view reason) {
    std::string payload;
    appendNumber(payload, code, 2);
    return payload.append(reason);
}

unsigned closeCode(const Frame& close) {
    return close.payload.size() < 2 ? 1005 : static_cast<unsigned>(numberAt(close.payload, 0, 2));
}

std::string webSocketAccept(std::string_view key) {
    const std::string text = std::string(key) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha1(), nullptr);
    std::array<unsigned char, 64> encoded{};
    const int size = EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(length));
    return std::string(encoded.begin(), encoded.begin() + size);
}

} // namespace cdxtest
