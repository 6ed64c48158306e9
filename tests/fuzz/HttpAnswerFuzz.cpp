// What a server answers to the framework. What is held: it is judged the same whether it comes at once or byte by byte,
// and nothing but an HttpError comes of a bad one.
#include "Hold.h"
#include "HttpAnswerParser.h"

#include <string>
#include <tuple>

namespace {

using cdxfuzz::hold;

struct Verdict {
    bool isRefused = false;
    bool isComplete = false;
    bool mayReuse = false;
    int status = 0;
    std::string body;
    std::size_t headers = 0;

    auto all() const { return std::tie(isRefused, isComplete, mayReuse, status, body, headers); }
};

Verdict judge(const std::string& bytes, std::size_t slice) {
    xalutil::HttpLimits limits;
    limits.headerBytes = 1024;
    limits.bodyBytes = 2048;
    xalutil::HttpAnswerParser parser(false, limits);
    Verdict verdict;
    try {
        for (std::size_t at = 0; at < bytes.size() && !parser.isComplete(); at += slice)
            parser.take(std::string_view(bytes).substr(at, slice));
        if (!parser.isComplete())
            parser.takeEnd();
    } catch (const xalutil::HttpError& error) {
        verdict.isRefused = true;
        verdict.status = error.getStatus();
        return verdict;
    }
    verdict.isComplete = parser.isComplete();
    verdict.status = parser.getStatus();
    const xalutil::HttpResponse answer = parser.takeAnswer();
    verdict.body = answer.body;
    verdict.headers = answer.headers.size();
    hold(verdict.body.size() <= limits.bodyBytes, "a body is within its limit");
    return verdict;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    hold(judge(bytes, bytes.size() + 1).all() == judge(bytes, 1).all(), "an answer is the same however it comes");
    return 0;
}
