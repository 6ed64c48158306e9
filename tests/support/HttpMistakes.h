#ifndef CDXTESTS_SUPPORT_HTTPMISTAKES_H
#define CDXTESTS_SUPPORT_HTTPMISTAKES_H

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace cdxtest {

enum class HttpFlaw {
    malformed,
    unknownCoding,
    lengthOverLimit,
    headerOverLimit,
    /// No end is announced that both sides would agree on: a request is malformed, an answer lasts until the connection
    /// ends.
    endless,
};

/// Header fields and a body that two readers could take for different messages, or that no reader should take at all.
struct HttpMistake {
    const char* title;
    std::string headers; ///< whole lines with their ends
    std::string body;
    HttpFlaw flaw = HttpFlaw::malformed;
};

// What is wrong in a request as in an answer. `body` is the body of a message that would be right if its framing were,
// `others` are the header lines of one that would be right without the mistake.
std::vector<HttpMistake> lengthMistakes(const std::string& body);
std::vector<HttpMistake> codingMistakes(const std::string& body);
std::vector<HttpMistake> headerMistakes(const std::string& others, const std::string& body);

/// A message as its bytes, and what must come of it: a status, or a reason in words.
struct HttpStrictnessCase {
    std::string title;
    std::string bytes;
    int status = 0;
    bool ends = false; ///< The peer ends the connection behind these bytes: only then can it be known to be cut short.
    std::string reason = {}; ///< Where a status is not what comes of it.
};

struct HttpStrictnessSection {
    const char* name;
    std::vector<HttpStrictnessCase> (*cases)();
};

std::ostream& operator<<(std::ostream& out, const HttpStrictnessSection& section);

/// Plays a section's cases; `difference` plays one and gives what is not as it must be, empty where all is. Each
/// difference fails the test, and each case becomes a row of the conformance report of `side`.
void playSection(const char* side, const HttpStrictnessSection& section, const char* behindStatus,
                 const std::function<std::string(const HttpStrictnessCase&)>& difference);

} // namespace cdxtest

#endif
