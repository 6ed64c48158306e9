#include "Handshake.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>

namespace cdxservice {

bool offersChannel(const RequestHead& head) {
    const std::string offered = head.combined("Sec-WebSocket-Protocol");
    const auto members = splitList(offered);
    return std::find(members.begin(), members.end(), channelProtocol) != members.end();
}

bool isWebSocketKey(std::string_view key) {
    if (key.size() != 24 || key.substr(22) != "==") {
        return false;
    }
    const auto isBase64 = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
    };
    return std::all_of(key.begin(), key.begin() + 22, isBase64);
}

std::string acceptUpgrade(std::string_view key) {
    std::string text(key);
    text.append("258EAFA5-E914-47DA-95CA-C5AB0DC85B11");
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    unsigned char accept[32];
    const int size = EVP_EncodeBlock(accept, digest, SHA_DIGEST_LENGTH);

    std::string answer = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                         "Sec-WebSocket-Accept: ";
    answer.append(reinterpret_cast<const char*>(accept), static_cast<std::size_t>(size));
    answer.append("\r\nSec-WebSocket-Protocol: ").append(channelProtocol).append("\r\n\r\n");
    return answer;
}

} // namespace cdxservice
