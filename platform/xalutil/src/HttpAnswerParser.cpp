#include "HttpText.h"

#include <xalutil/HttpAnswerParser.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace xalutil {

using namespace httptext;

namespace {

constexpr std::string_view versionPrefix = "HTTP/1.";
constexpr int switchingProtocols = 101;
constexpr std::size_t longestChunkLine = 1024;
constexpr std::size_t longestChunkSize = 15; ///< digits; no sum of lengths overflows

bool isInterim(int status) {
    return status >= 100 && status < 200;
}

/// All of `text` as a number; false where it is anything else, or too large.
bool readNumber(std::string_view text, int base, std::uint64_t& number) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

} // namespace

HttpAnswerParser::HttpAnswerParser(Asked asked, const HttpLimits& limits)
    : m_asked(asked), m_limits(limits), m_headerBudget(limits.headerBytes) {}

void HttpAnswerParser::refuse(const std::string& reason) const {
    throw HttpError(m_answer.status, "malformed answer: " + reason);
}

std::string_view HttpAnswerParser::take(std::string_view bytes) {
    m_hasSeenBytes = m_hasSeenBytes || !bytes.empty();
    while (!bytes.empty() && !isComplete()) {
        if (m_expected == Expected::BODY || m_expected == Expected::BODY_TO_THE_END || m_expected == Expected::CHUNK)
            takeBody(bytes);
        else if (takeLine(bytes))
            useLine();
    }
    m_isKept = m_isKept && bytes.empty();
    return bytes;
}

void HttpAnswerParser::takeEnd() {
    if (m_expected == Expected::BODY_TO_THE_END)
        m_expected = Expected::NOTHING;
    else if (!isComplete())
        refuse("the connection was closed before its end");
}

bool HttpAnswerParser::takeLine(std::string_view& bytes) {
    const bool isOfChunk = m_expected == Expected::CHUNK_LINE || m_expected == Expected::CHUNK_END;
    std::size_t& budget = isOfChunk ? m_chunkLineBudget : m_headerBudget;
    const std::size_t newLine = bytes.find('\n');
    const std::size_t used = newLine == std::string_view::npos ? bytes.size() : newLine + 1;
    if (used > budget)
        refuse(isOfChunk ? "a chunk's first line is too long" : "the header is too large");
    budget -= used;
    m_line.append(bytes.substr(0, used));
    bytes.remove_prefix(used);

    // What is not HTTP need not have lines at all.
    if (m_expected == Expected::STATUS_LINE &&
        m_line.compare(0, versionPrefix.size(), versionPrefix.substr(0, m_line.size())) != 0)
        refuse("it is not HTTP/1");
    if (newLine == std::string_view::npos)
        return false;
    if (m_line.size() < 2 || m_line[m_line.size() - 2] != '\r')
        refuse("a line ends without a carriage return");
    m_line.resize(m_line.size() - 2);
    if (!isFieldText(m_line))
        refuse("a control character in a line");
    return true;
}

void HttpAnswerParser::useLine() {
    switch (m_expected) {
    case Expected::STATUS_LINE:
        useStatusLine();
        break;
    case Expected::HEADER:
        if (m_line.empty())
            beginBody();
        else
            m_answer.headers.push_back(splitHeader());
        break;
    case Expected::CHUNK_LINE:
        useChunkLine();
        break;
    case Expected::CHUNK_END:
        if (!m_line.empty())
            refuse("a chunk is longer than its size");
        expectChunkLine();
        break;
    default:
        // A trailer says nothing that the answer needs, but must be one.
        if (m_line.empty())
            m_expected = Expected::NOTHING;
        else
            splitHeader();
        break;
    }
    m_line.clear();
}

void HttpAnswerParser::useStatusLine() {
    // "HTTP/1.1 200 OK"; the blank behind the status is there even where the reason is not.
    constexpr std::size_t minorAt = versionPrefix.size();
    constexpr std::size_t statusAt = minorAt + 2;
    constexpr std::size_t reasonAt = statusAt + 4;
    const std::string_view line = m_line;
    std::uint64_t status = 0;
    if (line.size() < reasonAt || (line[minorAt] != '0' && line[minorAt] != '1') || line[minorAt + 1] != ' ' ||
        line[reasonAt - 1] != ' ' || !readNumber(line.substr(statusAt, 3), 10, status) || status < 100)
        refuse("its status line cannot be read");
    m_isVersion11 = line[minorAt] == '1';
    m_answer.status = static_cast<int>(status);
    m_expected = Expected::HEADER;
}

std::pair<std::string, std::string> HttpAnswerParser::splitHeader() const {
    // A folded line begins with a blank, and so has no name.
    const std::string_view line = m_line;
    const std::size_t colon = std::min(line.find(':'), line.size());
    const std::string_view name = line.substr(0, colon);
    if (colon == line.size() || !isToken(name))
        refuse("a header line has no proper name");
    return {std::string(name), std::string(withoutBlanksAround(line.substr(colon + 1)))};
}

void HttpAnswerParser::beginBody() {
    readFraming();
    const int status = m_answer.status;
    if (isInterim(status)) {
        if (m_hasLength || m_isChunked)
            refuse("an interim answer with a body");
        if (status == switchingProtocols) {
            if (m_asked != Asked::UPGRADE)
                refuse("it switches to a protocol that nobody asked for");
            if (!m_isVersion11)
                refuse("it switches protocols in HTTP/1.0");
            m_expected = Expected::NOTHING;
            return;
        }
        m_answer = HttpResponse();
        m_expected = Expected::STATUS_LINE;
        return;
    }
    // Where no body may follow, one that is announced may come all the same, and be taken for the next answer.
    const bool isWithoutBody = m_asked == Asked::HEAD || status == 204 || status == 304;
    m_isFramed = isWithoutBody ? status != 204 || (!m_isChunked && m_length == 0) : m_hasLength || m_isChunked;
    m_isFramed = m_isFramed && m_asked != Asked::UPGRADE;
    if (isWithoutBody || m_asked == Asked::UPGRADE)
        m_expected = Expected::NOTHING;
    else if (m_isChunked)
        expectChunkLine();
    else if (m_hasLength)
        expectBody(Expected::BODY, Expected::NOTHING);
    else
        m_expected = Expected::BODY_TO_THE_END;
}

void HttpAnswerParser::readFraming() {
    m_hasLength = m_isChunked = false;
    m_length = 0;
    for (const auto& [name, value] : m_answer.headers) {
        if (equalIgnoringCase(name, "Content-Length")) {
            if (m_hasLength || !readNumber(value, 10, m_length))
                refuse("its Content-Length is not one number");
            m_hasLength = true;
        } else if (equalIgnoringCase(name, "Transfer-Encoding")) {
            if (m_isChunked || !m_isVersion11 || !equalIgnoringCase(value, "chunked"))
                refuse("its Transfer-Encoding is not once \"chunked\"");
            m_isChunked = true;
        }
    }
    if (m_hasLength && m_isChunked)
        refuse("both Content-Length and Transfer-Encoding");
    m_isKept = !m_answer.lists("Connection", "close") && (m_isVersion11 || m_answer.lists("Connection", "keep-alive"));
}

void HttpAnswerParser::expectChunkLine() {
    m_chunkLineBudget = longestChunkLine;
    m_expected = Expected::CHUNK_LINE;
}

void HttpAnswerParser::expectBody(Expected body, Expected afterIt) {
    if (m_length > m_limits.bodyBytes - m_answer.body.size())
        refuse("its body is too large");
    // A length is only a promise: room for all of it is made as it comes.
    constexpr std::uint64_t roomAtOnce = 1024 * 1024;
    m_answer.body.reserve(m_answer.body.size() + static_cast<std::size_t>(std::min(m_length, roomAtOnce)));
    m_expected = m_length == 0 ? afterIt : body;
}

void HttpAnswerParser::useChunkLine() {
    const std::string_view line = m_line;
    const std::string_view size = line.substr(0, line.find(';'));
    if (size.size() > longestChunkSize || !readNumber(size, 16, m_length))
        refuse("a chunk's size cannot be read");
    expectBody(Expected::CHUNK, Expected::TRAILER);
}

void HttpAnswerParser::takeBody(std::string_view& bytes) {
    const bool isToTheEnd = m_expected == Expected::BODY_TO_THE_END;
    const std::size_t used =
        isToTheEnd ? bytes.size() : static_cast<std::size_t>(std::min<std::uint64_t>(m_length, bytes.size()));
    if (used > m_limits.bodyBytes - m_answer.body.size())
        refuse("its body is too large");
    m_answer.body.append(bytes.substr(0, used));
    bytes.remove_prefix(used);
    if (isToTheEnd)
        return;
    m_length -= used;
    if (m_length > 0)
        return;
    if (m_expected == Expected::CHUNK) {
        m_chunkLineBudget = longestChunkLine;
        m_expected = Expected::CHUNK_END;
    } else {
        m_expected = Expected::NOTHING;
    }
}

} // namespace xalutil
