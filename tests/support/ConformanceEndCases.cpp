// Sections 7, 9 and 10: ends, sizes, and the rest.
#include "ConformanceCase.h"

#include <algorithm>

namespace cdxtest {

namespace {

Frame closing(std::string payload) {
    return {Opcode::close, std::move(payload)};
}

const char* const limitReason = "above the limit on messages";

/// A text message of `size`, in one frame or in fragments, and what must come of it.
void sendText(Script& script, std::size_t size, std::size_t fragment, std::size_t slice) {
    const bool fits = size <= script.dialect().limit();
    const std::string message = fits ? script.sized(size) : script.dialect().sized(0, size);
    if (fragment == 0)
        script.send({Opcode::text, message}, slice);
    else
        script.send(fragments(message, fragment));
    if (!fits)
        script.closes(1009).reason(limitReason);
}

void sendBinary(Script& script, std::size_t size, std::size_t fragment, std::size_t slice) {
    const std::string message(size, '\xfe');
    if (fragment == 0)
        script.send({Opcode::binary, message}, slice);
    else
        script.send(fragments(message, fragment, Opcode::binary));
    script.closes(script.dialect().codeForBinary(size)).reason("this protocol has no binary messages");
}

std::string inKib(std::size_t bytes) {
    return bytes < 1024 ? std::to_string(bytes) : std::to_string(bytes / 1024) + " KiB";
}

} // namespace

void closeCases(const Dialect& dialect, const CaseVisitor& visit) {
    const Frame ping{Opcode::ping, ""};
    const std::string normal = closePayload(1000);
    Script afterText(dialect, "7.1.1", "text, then close");
    visit(afterText.send({Opcode::text, afterText.message()}).send(closing(normal)).closes(1000).written());
    visit(Script(dialect, "7.1.2", "close twice").send(closing(normal)).send(closing(normal)).closes(1000).written());
    visit(Script(dialect, "7.1.3", "close, then ping").send({closing(normal), ping}).closes(1000).written());
    Script textAfter(dialect, "7.1.4", "close, then text");
    visit(textAfter.send({closing(normal), {Opcode::text, textAfter.late()}}).closes(1000).written());
    Script between(dialect, "7.1.5", "close between two fragments");
    std::vector<Frame> frames = fragments(between.late(), 20);
    frames.insert(frames.begin() + 1, closing(normal));
    visit(between.send(frames).closes(1000).written());
    Script large(dialect, "7.1.6", "text of 256 KiB, close, ping");
    sendText(large, 256 * 1024, 0, 0);
    large.send({closing(normal), ping});
    visit((large.written().closes.empty() ? large.closes(1000) : large).written());

    visit(Script(dialect, "7.3.1", "close without payload").send(closing("")).closes(1005).closes(1000).written());
    visit(Script(dialect, "7.3.2", "close with one byte").send(closing("a")).closes(1002).written());
    visit(Script(dialect, "7.3.3", "close with a code").send(closing(normal)).closes(1000).written());
    visit(Script(dialect, "7.3.4", "close with a code and a reason")
              .send(closing(closePayload(1000, "Hello, world!")))
              .closes(1000)
              .written());
    visit(Script(dialect, "7.3.5", "close with the longest reason")
              .send(closing(closePayload(1000, std::string(123, '*'))))
              .closes(1000)
              .written());
    visit(Script(dialect, "7.3.6", "close with a reason too long")
              .send(closing(closePayload(1000, std::string(124, '*'))))
              .closes(1002)
              .written());
    visit(Script(dialect, "7.5.1", "close with a reason that is no UTF-8")
              .send(closing(closePayload(1000, "\xce\xba\xe1\xbd\xb9\xed\xa0\x80")))
              .closes(1007)
              .closes(1002)
              .reason("either code names what is wrong")
              .written());

    const auto codes = [&](const char* prefix, std::initializer_list<unsigned> sent, bool areValid) {
        int index = 0;
        for (const unsigned code : sent) {
            visit(Script(dialect, prefix + std::to_string(++index), "close with code " + std::to_string(code))
                      .send(closing(closePayload(code)))
                      .closes(areValid ? code : 1002)
                      .written());
        }
    };
    codes("7.7.", {1000, 1001, 1002, 1003, 1007, 1008, 1009, 1010, 1011, 3000, 3999, 4000, 4999}, true);
    codes("7.9.", {0, 999, 1004, 1005, 1006, 1016, 1100, 2000, 2999}, false);
    int number = 0;
    for (const unsigned code : {5000U, 65535U}) {
        visit(Script(dialect, "7.13." + std::to_string(++number), "close with code " + std::to_string(code))
                  .send(closing(closePayload(code)))
                  .closes(1002)
                  .closes(code)
                  .reason("what to do with such a code is left open; it ends the connection either way")
                  .written());
    }
}

void limitCases(const Dialect& dialect, const CaseVisitor& visit) {
    const auto bothKinds = [&](const char* text, const char* binary, const std::vector<std::size_t>& sizes,
                               const auto& titled, const auto& arranged) {
        for (const bool isText : {true, false}) {
            for (std::size_t i = 0; i < sizes.size(); ++i) {
                Script script(dialect, (isText ? text : binary) + std::to_string(i + 1),
                              (isText ? "text" : "binary") + titled(sizes[i]));
                const auto [size, fragment, slice] = arranged(sizes[i]);
                (isText ? sendText : sendBinary)(script, size, fragment, slice);
                visit(script.written());
            }
        }
    };
    struct Arrangement {
        std::size_t size, fragment, slice;
    };
    constexpr std::size_t kib = 1024;
    bothKinds(
        "9.1.", "9.2.", {64 * kib, 256 * kib, 1024 * kib, 4096 * kib, 8192 * kib, 16384 * kib},
        [](std::size_t size) { return " of " + inKib(size); },
        [](std::size_t size) {
            return Arrangement{size, 0, 0};
        });
    bothKinds(
        "9.3.", "9.4.", {64, 256, kib, 4 * kib, 16 * kib, 64 * kib, 256 * kib, 1024 * kib, 4096 * kib},
        [](std::size_t size) { return " of 4096 KiB in fragments of " + inKib(size); },
        [](std::size_t size) {
            return Arrangement{4096 * kib, size, 0};
        });
    bothKinds(
        "9.5.", "9.6.", {64, 128, 256, 512, 1024, 2048},
        [](std::size_t size) { return " of 1024 KiB in pieces of " + std::to_string(size); },
        [](std::size_t size) {
            return Arrangement{1024 * kib, 0, size};
        });

    const std::size_t sizes[] = {0, 16, 64, 256, 1024, 4096};
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        Script many(dialect, "9.7." + std::to_string(i + 1), "1000 texts of " + std::to_string(sizes[i]) + " bytes");
        for (int message = 0; message < 1000; ++message)
            many.send({Opcode::text, many.sized(sizes[i])});
        if (sizes[i] < dialect.carrying(999, "").size())
            many.reason("in the size of the shortest message there is");
        visit(many.written());
    }
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        Script many(dialect, "9.8." + std::to_string(i + 1), "1000 binaries of " + std::to_string(sizes[i]) + " bytes");
        for (int message = 0; message < 1000; ++message)
            many.send({Opcode::binary, std::string(sizes[i], '\xfe')});
        visit(many.closes(dialect.codeForBinary(sizes[i])).reason("this protocol has no binary messages").written());
    }
}

void miscellaneousCases(const Dialect& dialect, const CaseVisitor& visit) {
    Script script(dialect, "10.1.1", "text of 65536 bytes in fragments of 1300");
    visit(script.send(fragments(script.sized(65536), 1300)).written());
}

} // namespace cdxtest
