// What a server answers to the framework. What is held: it is judged the same whether it comes at once or byte by byte,
// and nothing but an HttpError comes of a bad one.
#include "Hold.h"

#include <xalutil/HttpAnswerParser.h>

#include <string>
#include <tuple>

namespace {

using cdxfuzz::hold;
using Asked = xalutil::HttpAnswerParser::Asked;

struct Verdict {
    bool isRefused = false;
    bool isComplete = false;
    int status = 0;
    std::string body;
    std::size_t headers = 0;
    std::size_t used = 0;

    auto all() const { return std::tie(isRefused, isComplete, status, body, headers, used); }
};

Verdict judge(const std::string& bytes, std::size_t slice, Asked asked) {
    xalutil::HttpLimits limits;
    limits.headerBytes = 1024;
    limits.bodyBytes = 2048;
    xalutil::HttpAnswerParser parser(asked, limits);
    Verdict verdict;
    try {
        for (std::size_t at = 0; at < bytes.size() && !parser.isComplete(); at += slice) {
            const std::string_view piece = std::string_view(bytes).substr(at, slice);
            verdict.used += piece.size() - parser.take(piece).size();
        }
        if (!parser.isComplete())
            parser.takeEnd();
    } catch (const xalutil::HttpError& error) {
        Verdict refused;
        refused.isRefused = true;
        refused.status = error.getStatus();
        return refused;
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
    for (const Asked asked : {Asked::RESOURCE, Asked::HEAD, Asked::UPGRADE})
        hold(judge(bytes, bytes.size() + 1, asked).all() == judge(bytes, 1, asked).all(),
             "an answer is the same however it comes");
    return 0;
}
