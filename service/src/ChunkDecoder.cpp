#include "ChunkDecoder.h"

#include "RequestHead.h"

#include <algorithm>

namespace cdxservice {

namespace {

constexpr std::size_t maxSizeLine = 1024;

/// What stands behind a chunk's size: nothing, or whole extensions. Blanks are theirs, not the size's.
bool isExtension(std::string_view text) {
    const auto parameters = parseParameters(text);
    return text.empty() ||
           (parameters && !parameters->empty() &&
            std::none_of(parameters->begin(), parameters->end(), [](const auto& each) { return each.name.empty(); }));
}

} // namespace

void ChunkDecoder::discard() {
    m_discarding = true;
    m_body.clear();
    m_body.shrink_to_fit();
}

/// Collects a line; false if the byte cannot stand in one.
bool ChunkDecoder::takeLineByte(char c) {
    const bool afterReturn = !m_line.empty() && m_line.back() == '\r';
    if (c == '\n') {
        if (!afterReturn) {
            return false;
        }
        m_line.pop_back();
        m_lineEnded = true;
        return true;
    }
    const unsigned char byte = static_cast<unsigned char>(c);
    if (afterReturn || (byte < 0x20 && c != '\t' && c != '\r') || byte == 0x7f) {
        return false;
    }
    m_line.push_back(c);
    return true;
}

ChunkDecoder::State ChunkDecoder::takeSizeLine() {
    const auto digitsEnd = std::min(m_line.find_first_not_of("0123456789abcdefABCDEF"), m_line.size());
    if (digitsEnd == 0 || !isExtension(std::string_view(m_line).substr(digitsEnd))) {
        return State::Malformed;
    }
    // More digits than a number of 64 bits has are too many, whatever they say.
    if (digitsEnd > 16) {
        return State::Malformed;
    }
    m_remaining = std::stoull(m_line.substr(0, digitsEnd), nullptr, 16);
    m_line.clear();
    m_lineEnded = false;
    if (m_remaining > m_maxBodyBytes || m_total + m_remaining > m_maxBodyBytes) {
        return State::TooLarge;
    }
    m_total += m_remaining;
    m_phase = m_remaining == 0 ? Phase::Trailer : Phase::Data;
    return State::Reading;
}

ChunkDecoder::State ChunkDecoder::read(std::string_view input, std::size_t& used) {
    used = 0;
    while (used < input.size()) {
        if (m_phase == Phase::Data) {
            const std::size_t taken =
                static_cast<std::size_t>(std::min<std::uint64_t>(m_remaining, input.size() - used));
            if (!m_discarding) {
                m_body.append(input.substr(used, taken));
            }
            used += taken;
            m_remaining -= taken;
            if (m_remaining == 0) {
                m_phase = Phase::DataReturn;
            }
            continue;
        }
        const char c = input[used++];
        switch (m_phase) {
        case Phase::DataReturn:
        case Phase::DataEnd:
            if (c != (m_phase == Phase::DataReturn ? '\r' : '\n')) {
                return State::Malformed;
            }
            m_phase = m_phase == Phase::DataReturn ? Phase::DataEnd : Phase::Size;
            break;
        case Phase::Size:
            if (!takeLineByte(c) || m_line.size() > maxSizeLine) {
                return State::Malformed;
            }
            if (m_lineEnded) {
                const State state = takeSizeLine();
                if (state != State::Reading) {
                    return state;
                }
            }
            break;
        default:
            if (!takeLineByte(c) || ++m_trailerBytes > maxHeaderBytes) {
                return State::Malformed;
            }
            if (m_lineEnded) {
                if (m_line.empty()) {
                    return State::Complete;
                }
                if (!parseHeaderLine(m_line)) {
                    return State::Malformed;
                }
                m_line.clear();
                m_lineEnded = false;
            }
        }
    }
    return State::Reading;
}

} // namespace cdxservice
