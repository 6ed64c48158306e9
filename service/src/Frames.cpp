#include "Frames.h"

#include "Release.h"

#include <algorithm>

namespace cdxservice {

namespace {

constexpr unsigned continuation = 0;
constexpr unsigned text = 1;
constexpr unsigned binary = 2;
constexpr unsigned close = 8;
constexpr unsigned ping = 9;
constexpr unsigned pong = 10;

bool mayBeSent(std::uint16_t code) {
    const bool standard = code >= 1000 && code <= 1014 && code != 1004 && code != 1005 && code != 1006;
    return standard || (code >= 3000 && code <= 4999);
}

} // namespace

std::size_t FrameReader::headerSize() const {
    if (m_headerRead < 2) {
        return 2;
    }
    const unsigned length = m_header[1] & 0x7fu;
    return 2 + (length == 126 ? 2 : length == 127 ? 8 : 0) + 4;
}

FrameReader::Event FrameReader::next(std::string_view& input) {
    if (m_messageTaken) {
        constexpr std::size_t keptBytes = 4096;
        m_message.clear();
        if (m_message.capacity() > keptBytes) {
            release(m_message);
        }
        m_messageTaken = false;
    }
    for (;;) {
        if (!m_inPayload) {
            Event event;
            if (!takeHeader(input, event)) {
                return event;
            }
        }
        const std::size_t taken = static_cast<std::size_t>(std::min<std::uint64_t>(m_remaining, input.size()));
        std::string& target = isControl() ? m_control : m_message;
        const std::size_t begin = target.size();
        target.append(input.substr(0, taken));
        input.remove_prefix(taken);
        m_remaining -= taken;
        for (std::size_t i = begin; i < target.size(); ++i) {
            target[i] = static_cast<char>(static_cast<unsigned char>(target[i]) ^ m_mask[m_maskAt]);
            m_maskAt = (m_maskAt + 1) & 3;
        }
        if (!isControl() && !m_utf8.take(std::string_view(target).substr(begin))) {
            return failure(CloseCode::NotUtf8);
        }
        if (m_remaining > 0) {
            return {};
        }
        const Event event = finishFrame();
        if (event.kind != Event::Kind::More) {
            return event;
        }
    }
}

/// False when there is something to tell first: more bytes are needed, or the frame is bad.
bool FrameReader::takeHeader(std::string_view& input, Event& out) {
    while (m_headerRead < headerSize()) {
        if (input.empty()) {
            return false;
        }
        m_header[m_headerRead++] = static_cast<unsigned char>(input.front());
        input.remove_prefix(1);
        if (m_headerRead == 2) {
            out = checkHeader();
            if (out.kind != Event::Kind::More) {
                return false;
            }
        }
    }
    const unsigned length = m_header[1] & 0x7fu;
    m_remaining = length;
    if (length >= 126) {
        m_remaining = 0;
        for (std::size_t i = 2; i < m_headerRead - 4; ++i) {
            m_remaining = m_remaining << 8 | m_header[i];
        }
        if (m_remaining < (length == 126 ? 126u : 65536u) || m_remaining >> 63 != 0) {
            out = failure(CloseCode::Framing);
            return false;
        }
    }
    if (!isControl() && m_remaining > m_maxMessageBytes - m_message.size()) {
        out = failure(CloseCode::TooLarge);
        return false;
    }
    std::copy_n(m_header.begin() + static_cast<std::ptrdiff_t>(m_headerRead - 4), 4, m_mask.begin());
    m_maskAt = 0;
    m_headerRead = 0;
    m_inPayload = true;
    m_control.clear();
    return true;
}

FrameReader::Event FrameReader::checkHeader() {
    m_final = (m_header[0] & 0x80) != 0;
    m_opcode = m_header[0] & 0x0fu;
    const bool reserved = (m_header[0] & 0x70) != 0;
    const bool masked = (m_header[1] & 0x80) != 0;
    if (reserved || !masked) {
        return failure(CloseCode::Framing);
    }
    if (isControl()) {
        const bool known = m_opcode == close || m_opcode == ping || m_opcode == pong;
        const bool small = (m_header[1] & 0x7f) <= 125;
        return known && small && m_final ? Event() : failure(CloseCode::Framing);
    }
    if (m_opcode > binary || (m_opcode == continuation) != m_inMessage) {
        return failure(CloseCode::Framing);
    }
    if (m_opcode == binary) {
        return failure(CloseCode::Binary);
    }
    m_inMessage = true;
    return {};
}

FrameReader::Event FrameReader::finishFrame() {
    m_inPayload = false;
    switch (m_opcode) {
    case continuation:
    case text:
        if (!m_final) {
            return {};
        }
        m_inMessage = false;
        m_messageTaken = true;
        if (!m_utf8.complete()) {
            return failure(CloseCode::NotUtf8);
        }
        return {Event::Kind::Message, CloseCode::Normal, m_message};
    case ping:
        return {Event::Kind::Ping, CloseCode::Normal, m_control};
    case close:
        return finishClose();
    default:
        return {};
    }
}

FrameReader::Event FrameReader::finishClose() {
    if (m_control.empty()) {
        return {Event::Kind::Close, CloseCode::NoCode, {}};
    }
    if (m_control.size() == 1) {
        return failure(CloseCode::Framing);
    }
    const auto byte = [this](std::size_t i) { return static_cast<unsigned>(static_cast<unsigned char>(m_control[i])); };
    const std::uint16_t code = static_cast<std::uint16_t>(byte(0) << 8 | byte(1));
    if (!mayBeSent(code)) {
        return failure(CloseCode::Framing);
    }
    Utf8Checker reason;
    if (!reason.take(std::string_view(m_control).substr(2)) || !reason.complete()) {
        return failure(CloseCode::NotUtf8);
    }
    return {Event::Kind::Close, static_cast<CloseCode>(code), {}};
}

void writeFrameHeader(std::string& out, Opcode opcode, std::size_t payloadBytes) {
    out.push_back(static_cast<char>(0x80 | static_cast<unsigned>(opcode)));
    int lengthBytes = 0;
    if (payloadBytes < 126) {
        out.push_back(static_cast<char>(payloadBytes));
    } else if (payloadBytes < 65536) {
        out.push_back(126);
        lengthBytes = 2;
    } else {
        out.push_back(127);
        lengthBytes = 8;
    }
    for (int i = lengthBytes - 1; i >= 0; --i) {
        out.push_back(static_cast<char>(static_cast<std::uint64_t>(payloadBytes) >> (8 * i) & 0xff));
    }
}

void writeCloseFrame(std::string& out, CloseCode code) {
    if (code == CloseCode::NoCode) {
        writeFrameHeader(out, Opcode::Close, 0);
        return;
    }
    writeFrameHeader(out, Opcode::Close, 2);
    const unsigned number = static_cast<unsigned>(code);
    out.push_back(static_cast<char>(number >> 8));
    out.push_back(static_cast<char>(number & 0xff));
}

} // namespace cdxservice
