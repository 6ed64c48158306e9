#ifndef SERVICE_SRC_REQUESTHEAD_H
#define SERVICE_SRC_REQUESTHEAD_H

#include "HttpText.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cdxservice {

/// How much of a head is read before it is refused.
constexpr std::size_t maxTargetBytes = 8192;
constexpr std::size_t maxHeaderBytes = 32'768;

/// Request line and header fields. The views point into the connection's buffer.
struct RequestHead {
    struct Header {
        std::string_view name;
        std::string_view value;
    };
    enum class Body { None, Sized, Chunked };

    std::string_view method;
    std::string_view path; ///< As sent; begins with '/', but for "*" and the target of a CONNECT.
    std::string_view query;
    std::string_view host;   ///< Of an absolute target, else of the "Host" field: host and port as sent.
    std::string_view scheme; ///< Of an absolute target, else empty.
    std::vector<Header> headers;
    bool http10 = false;
    Body body = Body::None;
    std::uint64_t length = 0;
    bool keepAlive = true;

    /// The first field of this name.
    std::optional<std::string_view> value(std::string_view name) const;
    std::size_t count(std::string_view name) const;
    /// All fields of this name as one list.
    std::string combined(std::string_view name) const;

    bool hasBody() const { return body == Body::Chunked || length > 0; }
    bool expectsContinue() const;
    bool isHead() const { return method == "HEAD"; }
    bool reads() const { return method == "GET" || isHead(); }
    /// Asks for a WebSocket.
    bool isUpgrade() const;
};

/// Reads a request's head, line by line as it comes in, and refuses at the first byte that makes it a bad one: whatever
/// two readers of HTTP could understand in two ways.
class HeadParser {
public:
    enum class State { Reading, Complete, Failed };

    /// `buffer` begins with the request's first byte and at each call holds all that has come since. Once complete, the
    /// head's views point into this last buffer.
    State read(std::string_view buffer);

    const RequestHead& head() const { return m_head; }
    /// The complete head anew, after its bytes were moved to the front of another buffer.
    const RequestHead& rebind(std::string_view buffer);
    /// Bytes of the buffer that belong to the head.
    std::size_t size() const { return m_scanned; }
    /// The status that a failure is answered with, and why.
    int failure() const { return m_failure; }
    const std::string& failureDetail() const { return m_detail; }

    void reset();

private:
    struct Slice {
        std::size_t begin = 0;
        std::size_t size = 0;
    };
    struct HeaderSlices {
        Slice name, value;
    };

    bool fail(int status, const char* detail);
    bool takeLine(std::string_view buffer, std::size_t end);
    bool takeRequestLine(std::string_view buffer, std::string_view line);
    bool takeHeader(std::string_view line);
    bool checkGrowth(std::string_view buffer);
    bool finish(std::string_view buffer);
    bool finishTarget(std::string_view target);
    bool finishFraming();

    std::size_t m_scanned = 0;
    std::size_t m_lineBegin = 0;
    std::size_t m_headersBegin = 0;
    bool m_requestLineRead = false;
    bool m_emptyLineSkipped = false;
    bool m_complete = false;
    int m_failure = 0;
    std::string m_detail;
    Slice m_method, m_target;
    std::vector<HeaderSlices> m_slices;
    RequestHead m_head;
};

/// Whether a line is a header field as HTTP writes it; where it is, the parts.
std::optional<RequestHead::Header> parseHeaderLine(std::string_view line);

} // namespace cdxservice

#endif
