#include "ConformanceCase.h"

#include <algorithm>
#include <ostream>
#include <sstream>

namespace cdxtest {

namespace {

std::string describe(std::size_t taken, const std::vector<std::string>& pongs) {
    std::ostringstream text;
    text << taken << (taken == 1 ? " message" : " messages") << " taken";
    if (!pongs.empty())
        text << ", " << pongs.size() << (pongs.size() == 1 ? " pong" : " pongs");
    return text.str();
}

std::string describe(const std::vector<unsigned>& codes) {
    std::string text;
    for (const unsigned code : codes)
        text += (text.empty() ? "" : " or ") + std::to_string(code);
    return text;
}

} // namespace

std::string Dialect::sized(std::size_t index, std::size_t size) const {
    const std::size_t shortest = carrying(index, "").size();
    return carrying(index, std::string(size > shortest ? size - shortest : 0, 'a'));
}

std::string describeExpectation(const ConformanceCase& expected) {
    return describe(expected.taken, expected.pongs) +
           (expected.closes.empty() ? ", stays open" : ", closed with " + describe(expected.closes));
}

std::string ConformanceResult::differenceTo(const ConformanceCase& expected) const {
    if (!fault.empty())
        return fault;
    if (taken != expected.taken)
        return std::to_string(taken) + " messages taken";
    if (pongs != expected.pongs)
        return "other pongs: " + std::to_string(pongs.size());
    const std::vector<unsigned> codes = expected.closes.empty() ? std::vector<unsigned>{1000} : expected.closes;
    if (std::find(codes.begin(), codes.end(), close) == codes.end())
        return close == 0 ? "no close frame" : "closed with " + std::to_string(close);
    return ended ? "" : "the connection was not ended after the close frame";
}

ConformanceResult play(const ConformanceCase& played, WebSocketPeer& peer,
                       const std::function<bool(const std::string&)>& isTaking) {
    static const std::string theEnd = "the end of the case";
    for (const ConformanceCase::Step& step : played.steps) {
        if (!peer.tcp().send(step.bytes, step.slice))
            break;
    }
    const bool staysOpen = played.closes.empty();
    if (staysOpen)
        peer.ping(theEnd);

    ConformanceResult result;
    while (const auto frame = peer.read()) {
        if (frame->reserved != 0 || frame->masked.value() == peer.isClient())
            result.fault = "a frame with reserved bits or masked the wrong way";
        if (frame->opcode == Opcode::close) {
            result.close = closeCode(*frame);
            break;
        }
        if (frame->opcode == Opcode::text && isTaking(frame->payload))
            ++result.taken;
        if (frame->opcode == Opcode::pong && frame->payload != theEnd)
            result.pongs.push_back(frame->payload);
        if (frame->opcode == Opcode::pong && frame->payload == theEnd)
            peer.close(1000);
    }
    // It is the server's to end the connection first, its client waits for that.
    result.ended = peer.isClient() ? peer.tcp().readToEnd() : result.close != 0;
    peer.tcp().close();
    return result;
}

Script::Script(const Dialect& dialect, std::string number, std::string title)
    : m_dialect(dialect), m_case{std::move(number), std::move(title)} {}

Script& Script::send(const std::vector<Frame>& frames, std::size_t slice) {
    ConformanceCase::Step step;
    step.slice = slice;
    for (const Frame& frame : frames)
        step.bytes += encode(frame, m_dialect.isServer());
    m_case.steps.push_back(std::move(step));
    return *this;
}

Script& Script::pong(std::string payload) {
    m_case.pongs.push_back(std::move(payload));
    return *this;
}

Script& Script::closes(unsigned code) {
    m_case.closes.push_back(code);
    return *this;
}

Script& Script::reason(std::string text) {
    m_case.reason = std::move(text);
    return *this;
}

Script& Script::unreadable() {
    if (m_dialect.codeForUnreadable() != 0)
        closes(m_dialect.codeForUnreadable());
    return reason(m_dialect.codeForUnreadable() != 0 ? "no message of this protocol: taken as text, refused as such"
                                                     : "no message of this protocol: taken as text, dropped");
}

std::string Script::message(std::string_view bytes) {
    return m_dialect.carrying(m_case.taken++, bytes);
}

std::string Script::sized(std::size_t size) {
    return m_dialect.sized(m_case.taken++, size);
}

std::string Script::late() const {
    return m_dialect.carrying(m_case.taken, "late");
}

const std::vector<ConformanceSection>& conformanceSections() {
    static const std::vector<ConformanceSection> sections = {
        {"1_framing", framingCases, 16},
        {"2_pings", pingCases, 11},
        {"3_reserved_bits", reservedBitCases, 7},
        {"4_opcodes", opcodeCases, 10},
        {"5_fragmentation", fragmentationCases, 20},
        {"6_utf8", utf8Cases, 145},
        {"7_close", closeCases, 37},
        {"9_limits", limitCases, 54},
        {"10_miscellaneous", miscellaneousCases, 1},
    };
    return sections;
}

std::ostream& operator<<(std::ostream& out, const ConformanceSection& section) {
    return out << section.name;
}

std::vector<Frame> fragments(const std::string& message, std::size_t size, unsigned opcode) {
    std::vector<Frame> frames;
    for (std::size_t at = 0; at < message.size() || frames.empty(); at += size) {
        Frame frame;
        frame.opcode = frames.empty() ? opcode : Opcode::continuation;
        frame.payload = message.substr(at, size);
        frame.fin = at + size >= message.size();
        frames.push_back(std::move(frame));
    }
    return frames;
}

} // namespace cdxtest
