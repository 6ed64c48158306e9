// What a client sends to the service: a head, and a chunked body behind it. What is held: it is judged the same whether
// it comes at once or byte by byte.
#include "ChunkDecoder.h"
#include "Hold.h"
#include "RequestHead.h"

#include <string>
#include <tuple>

namespace {

using cdxfuzz::hold;
using namespace cdxservice;

constexpr std::size_t maxBody = 4096;

struct Verdict {
    HeadParser::State head = HeadParser::State::Reading;
    int failure = 0;
    std::size_t headBytes = 0;
    std::string method, path;
    ChunkDecoder::State body = ChunkDecoder::State::Reading;
    std::string content;

    auto all() const { return std::tie(head, failure, headBytes, method, path, body, content); }
};

Verdict judge(const std::string& bytes, std::size_t slice) {
    Verdict verdict;
    HeadParser parser;
    for (std::size_t end = slice; verdict.head == HeadParser::State::Reading; end += slice) {
        verdict.head = parser.read(std::string_view(bytes).substr(0, end));
        if (end >= bytes.size())
            break;
    }
    verdict.failure = parser.failure();
    if (verdict.head != HeadParser::State::Complete)
        return verdict;
    verdict.headBytes = parser.size();
    // The head's views point into the buffer that it was completed with.
    const RequestHead& head = parser.rebind(bytes);
    verdict.method = head.method;
    verdict.path = head.path;
    if (head.body != RequestHead::Body::Chunked)
        return verdict;
    ChunkDecoder decoder(maxBody);
    std::string_view rest = std::string_view(bytes).substr(parser.size());
    while (verdict.body == ChunkDecoder::State::Reading && !rest.empty()) {
        std::size_t used = 0;
        const std::string_view piece = rest.substr(0, slice);
        verdict.body = decoder.read(piece, used);
        hold(used <= piece.size(), "a decoder uses what it was given");
        rest.remove_prefix(used);
    }
    verdict.content = decoder.body();
    hold(verdict.content.size() <= maxBody, "a body is within its limit");
    return verdict;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    const Verdict whole = judge(bytes, bytes.size() + 1);
    const Verdict sliced = judge(bytes, 1);
    hold(whole.all() == sliced.all(), "a request is the same however it comes");
    return 0;
}
