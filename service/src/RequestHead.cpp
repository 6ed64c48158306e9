#include "RequestHead.h"

#include <algorithm>
#include <limits>

namespace cdxservice {

namespace {

bool isTargetCharacter(char c) {
    const bool alphanumeric = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    return alphanumeric || std::string_view("-._~!$&'()*+,;=:@/?%").find(c) != std::string_view::npos;
}

bool hasTargetCharactersOnly(std::string_view text) {
    return std::all_of(text.begin(), text.end(), isTargetCharacter) && percentDecoded(text).has_value();
}

bool isTarget(std::string_view target) {
    // The host of an absolute address is the only place for brackets.
    const auto literal = target.find("://[");
    if (literal != std::string_view::npos && isToken(target.substr(0, literal))) {
        const std::string_view behindScheme = target.substr(literal + 3);
        const auto end = behindScheme.find(']') + 1;
        return parseAuthority(behindScheme.substr(0, end)) && hasTargetCharactersOnly(behindScheme.substr(end));
    }
    return !target.empty() && hasTargetCharactersOnly(target);
}

bool isForbiddenByte(unsigned char c) {
    return (c < 0x20 && c != '\t' && c != '\r' && c != '\n') || c == 0x7f;
}

} // namespace

std::optional<std::string_view> RequestHead::value(std::string_view name) const {
    for (const Header& header : headers) {
        if (equalsIgnoringCase(header.name, name)) {
            return header.value;
        }
    }
    return std::nullopt;
}

std::size_t RequestHead::count(std::string_view name) const {
    return static_cast<std::size_t>(std::count_if(
        headers.begin(), headers.end(), [&](const Header& header) { return equalsIgnoringCase(header.name, name); }));
}

std::string RequestHead::combined(std::string_view name) const {
    std::string list;
    bool first = true;
    for (const Header& header : headers) {
        if (equalsIgnoringCase(header.name, name)) {
            list.append(first ? "" : ",").append(header.value);
            first = false;
        }
    }
    return list;
}

bool RequestHead::expectsContinue() const {
    return !http10 && listHas(combined("Expect"), "100-continue");
}

bool RequestHead::isUpgrade() const {
    return method == "GET" && !http10 && value("Upgrade") && listHas(combined("Upgrade"), "websocket") &&
           listHas(combined("Connection"), "upgrade");
}

std::optional<RequestHead::Header> parseHeaderLine(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || !isToken(line.substr(0, colon))) {
        return std::nullopt;
    }
    return RequestHead::Header{line.substr(0, colon), trimmed(line.substr(colon + 1))};
}

void HeadParser::reset() {
    m_scanned = m_lineBegin = m_headersBegin = 0;
    m_requestLineRead = m_emptyLineSkipped = m_complete = false;
    m_failure = 0;
    m_slices.clear();
    m_head.headers.clear();
}

bool HeadParser::fail(int status, const char* detail) {
    m_failure = status;
    m_detail = detail;
    return false;
}

HeadParser::State HeadParser::read(std::string_view buffer) {
    while (!m_complete && m_failure == 0 && m_scanned < buffer.size()) {
        const char c = buffer[m_scanned];
        const bool afterReturn = m_scanned > m_lineBegin && buffer[m_scanned - 1] == '\r';
        ++m_scanned;
        if (c == '\n') {
            if (!afterReturn) {
                fail(400, "a line ends without a carriage return");
            } else if (takeLine(buffer, m_scanned - 2)) {
                m_lineBegin = m_scanned;
            }
        } else if (afterReturn) {
            fail(400, "a carriage return ends no line");
        } else if (isForbiddenByte(static_cast<unsigned char>(c))) {
            fail(400, "a control character");
        } else if (m_requestLineRead && m_scanned == m_lineBegin + 1 && (c == ' ' || c == '\t')) {
            fail(400, "a folded header line");
        } else {
            checkGrowth(buffer);
        }
    }
    if (m_failure != 0) {
        return State::Failed;
    }
    return m_complete ? State::Complete : State::Reading;
}

bool HeadParser::checkGrowth(std::string_view buffer) {
    if (m_requestLineRead) {
        return m_scanned - m_headersBegin <= maxHeaderBytes || fail(431, "the header is too large");
    }
    constexpr std::size_t methodAndVersion = 64;
    if (m_scanned - m_lineBegin <= maxTargetBytes + methodAndVersion) {
        return true;
    }
    const bool inTarget = buffer.substr(m_lineBegin, m_scanned - m_lineBegin).find(' ') != std::string_view::npos;
    return inTarget ? fail(414, "the address is too long") : fail(501, "no method is that long");
}

bool HeadParser::takeLine(std::string_view buffer, std::size_t end) {
    const std::string_view line = buffer.substr(m_lineBegin, end - m_lineBegin);
    if (m_requestLineRead) {
        return line.empty() ? finish(buffer) : takeHeader(line);
    }
    if (line.empty()) {
        if (m_emptyLineSkipped) {
            return fail(400, "no request line");
        }
        m_emptyLineSkipped = true;
        return true;
    }
    return takeRequestLine(buffer, line);
}

bool HeadParser::takeRequestLine(std::string_view buffer, std::string_view line) {
    const auto first = line.find(' ');
    const auto last = line.rfind(' ');
    if (first == std::string_view::npos || first == last) {
        return fail(400, "the request line is not method, address and version");
    }
    const std::string_view method = line.substr(0, first);
    const std::string_view target = line.substr(first + 1, last - first - 1);
    const std::string_view version = line.substr(last + 1);
    if (!isToken(method)) {
        return fail(400, "the method is no token");
    }
    if (target.size() > maxTargetBytes) {
        return fail(414, "the address is too long");
    }
    if (!isTarget(target) && !(method == "CONNECT" && parseAuthority(target))) {
        return fail(400, "the address has characters, or an escape, that none has");
    }
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (version.size() != 8 || version.substr(0, 5) != "HTTP/" || !isDigit(version[5]) || version[6] != '.' ||
        !isDigit(version[7])) {
        return fail(400, "the version is none of HTTP's");
    }
    if (version[5] != '1') {
        return fail(505, "only HTTP/1 is spoken");
    }
    m_head.http10 = version[7] == '0';
    m_method = {m_lineBegin, method.size()};
    m_target = {static_cast<std::size_t>(target.data() - buffer.data()), target.size()};
    m_requestLineRead = true;
    m_headersBegin = m_scanned;
    return true;
}

bool HeadParser::takeHeader(std::string_view line) {
    const auto header = parseHeaderLine(line);
    if (!header) {
        return fail(400, "a header line is no name, colon and value");
    }
    const auto slice = [&](std::string_view part) {
        return part.empty() ? Slice{m_lineBegin, 0}
                            : Slice{m_lineBegin + static_cast<std::size_t>(part.data() - line.data()), part.size()};
    };
    m_slices.push_back({slice(header->name), slice(header->value)});
    return true;
}

bool HeadParser::finish(std::string_view buffer) {
    const auto view = [&](Slice slice) { return buffer.substr(slice.begin, slice.size); };
    m_head.method = view(m_method);
    for (const HeaderSlices& slices : m_slices) {
        m_head.headers.push_back({view(slices.name), view(slices.value)});
    }
    m_complete = finishTarget(view(m_target)) && finishFraming();
    return m_complete;
}

const RequestHead& HeadParser::rebind(std::string_view buffer) {
    m_head.headers.clear();
    finish(buffer);
    return m_head;
}

bool HeadParser::finishTarget(std::string_view target) {
    const std::size_t hosts = m_head.count("Host");
    if (hosts > 1 || (hosts == 0 && !m_head.http10)) {
        return fail(400, "a request names its host once");
    }
    m_head.host = m_head.value("Host").value_or(std::string_view());
    m_head.scheme = {};
    if (!parseAuthority(m_head.host)) {
        return fail(400, "the host is malformed");
    }
    if (m_head.method == "CONNECT" || (target == "*" && m_head.method == "OPTIONS")) {
        m_head.path = target;
        m_head.query = {};
        return true;
    }
    if (target.front() != '/') {
        const auto schemeEnd = target.find("://");
        if (schemeEnd == std::string_view::npos || !isToken(target.substr(0, schemeEnd))) {
            return fail(400, "the address is neither a path nor absolute");
        }
        m_head.scheme = target.substr(0, schemeEnd);
        target.remove_prefix(schemeEnd + 3);
        m_head.host = target.substr(0, target.find_first_of("/?"));
        target.remove_prefix(m_head.host.size());
        if (m_head.host.empty() || !parseAuthority(m_head.host)) {
            return fail(400, "the address names no host");
        }
    }
    const auto question = target.find('?');
    m_head.path = target.substr(0, question);
    if (m_head.path.empty()) {
        m_head.path = "/";
    }
    m_head.query = question == std::string_view::npos ? std::string_view() : target.substr(question + 1);
    return true;
}

bool HeadParser::finishFraming() {
    const std::size_t lengths = m_head.count("Content-Length");
    const std::size_t codings = m_head.count("Transfer-Encoding");
    m_head.body = RequestHead::Body::None;
    m_head.length = 0;
    if (codings > 0) {
        if (lengths > 0) {
            return fail(400, "both a length and a transfer coding");
        }
        if (m_head.http10) {
            return fail(400, "HTTP/1.0 has no transfer codings");
        }
        const std::string combined = m_head.combined("Transfer-Encoding");
        const auto members = splitList(combined);
        const auto chunked = [](std::string_view member) { return equalsIgnoringCase(member, "chunked"); };
        if (!chunked(members.back()) || std::count_if(members.begin(), members.end(), chunked) != 1) {
            return fail(400, "chunked is not the last transfer coding, once");
        }
        if (members.size() > 1) {
            const bool named = std::all_of(members.begin(), members.end(), [](auto each) { return !each.empty(); });
            return named ? fail(501, "of the transfer codings only chunked is known")
                         : fail(400, "an empty transfer coding");
        }
        m_head.body = RequestHead::Body::Chunked;
    } else if (lengths > 0) {
        const std::string_view digits = *m_head.value("Content-Length");
        if (lengths > 1 || digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos) {
            return fail(400, "the content length is no number, once");
        }
        m_head.body = RequestHead::Body::Sized;
        for (const char digit : digits) {
            constexpr std::uint64_t highest = std::numeric_limits<std::uint64_t>::max();
            const std::uint64_t units = static_cast<std::uint64_t>(digit - '0');
            m_head.length = m_head.length > (highest - units) / 10 ? highest : m_head.length * 10 + units;
        }
    }
    m_head.keepAlive = !m_head.http10;
    if (m_head.value("Connection")) {
        const std::string options = m_head.combined("Connection");
        m_head.keepAlive = !listHas(options, "close") && (!m_head.http10 || listHas(options, "keep-alive"));
    }
    return true;
}

} // namespace cdxservice
