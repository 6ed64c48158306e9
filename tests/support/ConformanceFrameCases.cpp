// Sections 1 to 5: frames, pings, reserved bits and opcodes, fragments.
#include "ConformanceCase.h"

namespace cdxtest {

namespace {

constexpr std::size_t octets = 1;

std::string numbered(const char* section, std::size_t index) {
    return section + std::to_string(index);
}

Frame ping(std::string payload = {}) {
    return {Opcode::ping, std::move(payload)};
}
Frame pong(std::string payload = {}) {
    return {Opcode::pong, std::move(payload)};
}

/// A message as two fragments.
std::vector<Frame> halves(const std::string& message) {
    return fragments(message, message.size() / 2 + 1);
}

/// One step for each frame.
void oneByOne(Script& script, const std::vector<Frame>& frames) {
    for (const Frame& frame : frames)
        script.send(frame);
}

} // namespace

void framingCases(const Dialect& dialect, const CaseVisitor& visit) {
    const std::size_t sizes[] = {0, 125, 126, 127, 128, 65535, 65536, 65536};
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        const std::size_t slice = i == 7 ? 997 : 0;
        const std::string what = std::to_string(sizes[i]) + " bytes" + (slice ? " in pieces of 997" : "");
        Script text(dialect, numbered("1.1.", i + 1), "text of " + what);
        if (sizes[i] == 0)
            text.send(Frame{Opcode::text, ""}).unreadable();
        else
            text.send({Opcode::text, text.sized(sizes[i])}, slice);
        visit(text.written());
    }
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        const std::size_t slice = i == 7 ? 997 : 0;
        const std::string what = std::to_string(sizes[i]) + " bytes" + (slice ? " in pieces of 997" : "");
        Script binary(dialect, numbered("1.2.", i + 1), "binary of " + what);
        binary.send({Opcode::binary, std::string(sizes[i], '\xfe')}, slice).closes(dialect.codeForBinary(sizes[i]));
        visit(binary.reason("this protocol has no binary messages").written());
    }
}

void pingCases(const Dialect& dialect, const CaseVisitor& visit) {
    const std::string binary("\x00\xff\xfe\xfd\xfc\xfb\x00\xff", 8);
    const std::string full(125, '\xfe');
    visit(Script(dialect, "2.1", "ping without payload").send(ping()).pong("").written());
    visit(Script(dialect, "2.2", "ping with text").send(ping("Hello, world!")).pong("Hello, world!").written());
    visit(Script(dialect, "2.3", "ping with bytes that are no text").send(ping(binary)).pong(binary).written());
    visit(Script(dialect, "2.4", "ping of 125 bytes").send(ping(full)).pong(full).written());
    visit(Script(dialect, "2.5", "ping of 126 bytes").send(ping(full + '\xfe')).closes(1002).written());
    visit(Script(dialect, "2.6", "ping of 125 bytes, byte by byte").send(ping(full), octets).pong(full).written());
    visit(Script(dialect, "2.7", "pong nobody asked for").send(pong()).written());
    visit(Script(dialect, "2.8", "pong with payload nobody asked for").send(pong("unsolicited")).written());
    visit(Script(dialect, "2.9", "pong nobody asked for, then a ping")
              .send(pong("unsolicited"))
              .send(ping("a ping"))
              .pong("a ping")
              .written());
    for (const std::size_t slice : {std::size_t(0), octets}) {
        Script ten(dialect, slice ? "2.11" : "2.10", slice ? "ten pings, byte by byte" : "ten pings");
        for (int i = 0; i < 10; ++i) {
            const std::string payload = "payload-" + std::to_string(i);
            ten.send(ping(payload), slice).pong(payload);
        }
        visit(ten.written());
    }
}

void reservedBitCases(const Dialect& dialect, const CaseVisitor& visit) {
    const auto withBits = [](Frame frame, unsigned bits) {
        frame.reserved = bits;
        return frame;
    };
    Script first(dialect, "3.1", "text with reserved bits 1");
    visit(first.send(withBits({Opcode::text, first.late()}, 1)).closes(1002).written());
    for (unsigned bits = 2; bits <= 4; ++bits) {
        Script script(dialect, numbered("3.", bits),
                      "text, text with reserved bits " + std::to_string(bits) + ", ping");
        const std::vector<Frame> frames = {
            {Opcode::text, script.message()}, withBits({Opcode::text, script.late()}, bits), ping()};
        if (bits == 2)
            script.send(frames);
        else if (bits == 3)
            oneByOne(script, frames);
        else
            script.send(frames, octets);
        visit(script.closes(1002).written());
    }
    visit(Script(dialect, "3.5", "binary with reserved bits 5")
              .send(withBits({Opcode::binary, std::string(8, '\xff')}, 5))
              .closes(1002)
              .written());
    visit(Script(dialect, "3.6", "ping with reserved bits 6").send(withBits(ping(), 6)).closes(1002).written());
    visit(Script(dialect, "3.7", "close with reserved bits 7")
              .send(withBits({Opcode::close, closePayload(1000)}, 7))
              .closes(1002)
              .written());
}

void opcodeCases(const Dialect& dialect, const CaseVisitor& visit) {
    const auto section = [&](const char* prefix, unsigned opcode) {
        for (unsigned i = 0; i < 5; ++i, ++opcode) {
            const bool after = i >= 2;
            const std::string payload = i == 0 || i == 2 ? "" : "Hello, world!";
            Script script(dialect, numbered(prefix, i + 1),
                          std::string(after ? "text, then " : "") + "opcode " + std::to_string(opcode) +
                              (payload.empty() ? "" : " with payload") + (i == 4 ? ", byte by byte" : ""));
            std::vector<Frame> frames;
            if (after)
                frames.push_back({Opcode::text, script.message()});
            frames.push_back({opcode, payload});
            if (after)
                frames.push_back(ping());
            visit(script.send(frames, i == 4 ? octets : 0).closes(1002).written());
        }
    };
    section("4.1.", 3);
    section("4.2.", 11);
}

void fragmentationCases(const Dialect& dialect, const CaseVisitor& visit) {
    // Three ways to send the same: at once, frame by frame, byte by byte.
    const auto threeWays = [&](std::size_t from, const std::string& title, const auto& write) {
        const char* const ways[] = {"", ", frame by frame", ", byte by byte"};
        for (std::size_t way = 0; way < 3; ++way) {
            Script script(dialect, numbered("5.", from + way), title + ways[way]);
            const std::vector<Frame> frames = write(script);
            if (way == 1)
                oneByOne(script, frames);
            else
                script.send(frames, way == 2 ? octets : 0);
            visit(script.written());
        }
    };
    const auto inTwo = [](const Frame& whole) {
        std::vector<Frame> frames = halves(whole.payload);
        frames.front().opcode = whole.opcode;
        return frames;
    };
    visit(Script(dialect, "5.1", "ping in two fragments").send(inTwo(ping("fragment"))).closes(1002).written());
    visit(Script(dialect, "5.2", "pong in two fragments").send(inTwo(pong("fragment"))).closes(1002).written());
    threeWays(3, "text in two fragments", [&](Script& script) { return halves(script.message()); });
    threeWays(6, "text in two fragments, a ping between", [&](Script& script) {
        std::vector<Frame> frames = halves(script.message());
        frames.insert(frames.begin() + 1, ping("between"));
        script.pong("between");
        return frames;
    });
    for (const bool fin : {true, false}) {
        threeWays(
            fin ? 9 : 12, std::string("continuation") + (fin ? "" : " without end") + " of nothing, then text",
            [&](Script& script) {
                script.closes(1002);
                return std::vector<Frame>{{Opcode::continuation, "of nothing", fin}, {Opcode::text, script.late()}};
            });
    }
    Script afterText(dialect, "5.15", "text in two fragments, continuation of nothing, text");
    std::vector<Frame> frames = halves(afterText.message());
    frames.push_back({Opcode::continuation, "of nothing", false});
    frames.push_back({Opcode::text, afterText.late()});
    visit(afterText.send(frames).closes(1002).written());
    for (const bool fin : {false, true}) {
        Script twice(dialect, fin ? "5.17" : "5.16",
                     std::string("twice: continuation") + (fin ? "" : " without end") +
                         " of nothing, text in two fragments");
        frames.clear();
        for (int i = 0; i < 2; ++i) {
            frames.push_back({Opcode::continuation, "of nothing", fin});
            for (Frame& half : halves(twice.late()))
                frames.push_back(std::move(half));
        }
        visit(twice.send(frames).closes(1002).written());
    }
    Script again(dialect, "5.18", "text in two fragments, the second one begun as text");
    frames = halves(again.late());
    frames.back().opcode = Opcode::text;
    visit(again.send(frames).closes(1002).written());
    for (const bool apart : {true, false}) {
        Script five(dialect, apart ? "5.19" : "5.20",
                    std::string("text in five fragments, two pings between") + (apart ? ", in two parts" : ""));
        const std::string message = five.message();
        std::vector<Frame> parts = fragments(message, message.size() / 5 + 1);
        parts.insert(parts.begin() + 2, ping("first"));
        parts.insert(parts.begin() + 5, ping("second"));
        five.pong("first").pong("second");
        if (apart) {
            five.send(std::vector<Frame>(parts.begin(), parts.begin() + 3))
                .send(std::vector<Frame>(parts.begin() + 3, parts.end()))
                .reason("two parts sent apart, without the second of waiting between");
        } else {
            five.send(parts);
        }
        visit(five.written());
    }
}

} // namespace cdxtest
