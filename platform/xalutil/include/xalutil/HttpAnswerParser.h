#ifndef XALUTIL_HTTPANSWERPARSER_H
#define XALUTIL_HTTPANSWERPARSER_H

#include <xalutil/HttpSession.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace xalutil {

/// Takes the bytes of one answer as they come, and refuses every answer whose end two readers could see in two places.
///
/// Stricter than the parsers at hand, which mend what they can: lines end with CR LF and only there, a header is not
/// folded and has no blank before its colon, there is one length or one "chunked" and never both, chunk lines are
/// short. Interim answers are passed over.
class HttpAnswerParser {
public:
    /// What was asked for, which decides where the answer ends: one for an upgrade, whatever its status, with its
    /// header; only that one may be a switch of protocols (101).
    enum class Asked { RESOURCE, HEAD, UPGRADE };

    HttpAnswerParser(Asked asked, const HttpLimits& limits);

    /// Uses the bytes up to the answer's end and returns those behind it, which make an HTTP connection useless. Throws
    /// HttpError when they are no HTTP answer, or one beyond the limits.
    std::string_view take(std::string_view bytes);
    /// The connection was closed by the server. Throws HttpError unless that completes the answer.
    void takeEnd();

    bool isComplete() const noexcept { return m_expected == Expected::NOTHING; }
    bool hasSeenBytes() const noexcept { return m_hasSeenBytes; }
    /// Of the last status line, an interim answer's too; 0 before that.
    int getStatus() const noexcept { return m_answer.status; }
    /// Whether the complete answer leaves its connection fit for another one.
    bool mayReuseConnection() const noexcept { return m_isFramed && m_isKept; }
    HttpResponse takeAnswer() noexcept { return std::move(m_answer); }

private:
    enum class Expected { STATUS_LINE, HEADER, BODY, BODY_TO_THE_END, CHUNK_LINE, CHUNK, CHUNK_END, TRAILER, NOTHING };

    [[noreturn]] void refuse(const std::string& reason) const;
    /// Collects a line in m_line, without its end; false while that has not come.
    bool takeLine(std::string_view& bytes);
    void useLine();
    void useStatusLine();
    std::pair<std::string, std::string> splitHeader() const;
    void beginBody();
    void readFraming();
    void expectChunkLine();
    /// `m_length` bytes of the body are next, and `afterIt` if that is none.
    void expectBody(Expected body, Expected afterIt);
    void useChunkLine();
    void takeBody(std::string_view& bytes);

    const Asked m_asked;
    const HttpLimits m_limits;
    std::size_t m_headerBudget;
    std::size_t m_chunkLineBudget = 0;

    Expected m_expected = Expected::STATUS_LINE;
    std::string m_line;
    HttpResponse m_answer;
    std::uint64_t m_length = 0; ///< what is still to come of the body or the chunk
    bool m_hasSeenBytes = false;
    bool m_isVersion11 = false;
    bool m_hasLength = false;
    bool m_isChunked = false;
    bool m_isFramed = false; ///< the answer's end is told by the answer itself
    bool m_isKept = false;   ///< neither does the server ask for the connection's end, nor is anything left over
};

} // namespace xalutil

#endif
