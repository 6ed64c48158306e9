#include "HttpSession.h"

#include "Channel.h"
#include "Release.h"
#include "ServerCore.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <new>
#include <utility>

namespace cdxservice {

namespace {

/// Answers to requests that came in one go are gathered up to here before they are written.
constexpr std::size_t gatheredBytes = 65'536;
/// A peer that takes everything at once still lets the others have their turn.
constexpr int turnsInARow = 4;
/// So long requests that wait one behind the other are answered; then the others have their turn.
constexpr std::chrono::milliseconds turnTime(1);
/// How long a peer may take to read the last answer before the connection goes.
constexpr std::chrono::seconds drainTime(5);

} // namespace

HttpSession::HttpSession(ServerCore& core, std::unique_ptr<Transport> transport)
    : m_core(core), m_transport(std::move(transport)), m_lastByte(core.now()) {}

void HttpSession::start() {
    guarded(m_core, [this] {
        if (!m_transport->isTls()) {
            read();
            return;
        }
        m_requestBegan = m_lastByte;
        m_transport->asyncHandshake([this, self = shared_from_this()](boost::system::error_code error) {
            if (error || m_phase == Phase::Closed) {
                close();
                return;
            }
            m_lastByte = m_core.now();
            m_requestBegan.reset();
            guarded(m_core, [this] { read(); });
        });
    });
}

std::size_t HttpSession::held() const {
    return beyondOwn(m_in.capacity()) + beyondOwn(m_out.held()) + (m_list ? m_list->held() : 0) +
           (m_chunks ? m_chunks->body().capacity() : 0);
}

void HttpSession::checkTime(Time now) {
    const auto& options = m_core.options;
    const bool silent = now - m_lastByte >= (m_phase == Phase::Draining ? drainTime : options.idleTimeout);
    const bool endless = m_requestBegan && now - *m_requestBegan >= options.requestTimeout;
    if (silent || endless) {
        close();
    }
}

void HttpSession::stop() {
    if (m_writing) {
        m_phase = Phase::Ending;
    } else {
        close();
    }
}

void HttpSession::close() {
    if (m_phase == Phase::Closed) {
        return;
    }
    m_phase = Phase::Closed;
    if (m_transport) {
        m_transport->close();
    }
    m_core.remove(shared_from_this());
}

/// Bytes went one way or the other.
void HttpSession::moved(Time when) {
    m_lastByte = when;
    progress(m_core);
}

void HttpSession::consume(std::size_t bytes) {
    m_begin += bytes;
    if (m_begin < m_end) {
        return;
    }
    m_begin = m_end = 0;
    if (m_in.size() > ownBuffer) {
        release(m_in);
    }
}

void HttpSession::read() {
    if (m_begin > 0) {
        std::copy(m_in.begin() + static_cast<std::ptrdiff_t>(m_begin),
                  m_in.begin() + static_cast<std::ptrdiff_t>(m_end), m_in.begin());
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_in.size() - m_end < ownBuffer / 2) {
        const std::size_t before = m_in.size();
        m_in.resize(std::max(ownBuffer, 2 * before));
        m_core.grown(m_in.size() - before);
        if (m_phase == Phase::Closed) {
            return;
        }
    }
    m_reading = true;
    m_transport->asyncReadSome(boost::asio::buffer(m_in.data() + m_end, m_in.size() - m_end),
                               [this, self = shared_from_this()](boost::system::error_code error, std::size_t bytes) {
                                   m_reading = false;
                                   if (error || m_phase == Phase::Closed) {
                                       close();
                                       return;
                                   }
                                   takeTurn([&] { received(bytes); });
                               });
}

void HttpSession::received(std::size_t bytes) {
    if (m_phase == Phase::Draining) {
        read();
        return;
    }
    moved(m_core.now());
    m_end += bytes;
    process();
}

void HttpSession::process() {
    bool more = true;
    while (more && m_phase != Phase::Ending && !m_list && m_out.size() < gatheredBytes && !unread().empty() &&
           !isTurnOver()) {
        if (!m_requestBegan) {
            m_requestBegan = m_lastByte;
        }
        more = m_phase == Phase::Head ? processHead() : processBody();
    }
    if (m_phase == Phase::Closed) {
        return;
    }
    if (!m_out.empty()) {
        write();
    } else if (m_phase == Phase::Ending) {
        drain();
    } else if (more && !unread().empty()) {
        boost::asio::post(m_core.io, [this, self = shared_from_this()] {
            if (m_phase != Phase::Closed) {
                takeTurn([this] { process(); });
            }
        });
    } else {
        read();
    }
}

template <class Step>
void HttpSession::takeTurn(Step step) {
    m_turnEnds = std::chrono::steady_clock::now() + turnTime;
    guarded(m_core, step);
}

bool HttpSession::isTurnOver() const {
    return std::chrono::steady_clock::now() >= m_turnEnds;
}

/// False when more bytes are needed, or none any more.
bool HttpSession::processHead() {
    switch (m_parser.read(unread())) {
    case HeadParser::State::Reading:
        return false;
    case HeadParser::State::Failed:
        m_phase = Phase::Ending;
        writeResponse(m_out, Response::fromProblem({m_parser.failure(), m_parser.failureDetail()}),
                      {false, true, false});
        return false;
    case HeadParser::State::Complete:
        break;
    }
    judge();
    return m_phase != Phase::Closed && m_phase != Phase::Ending;
}

void HttpSession::judge() {
    const RequestHead& head = m_parser.head();
    auto verdict = m_core.router.judge(head, m_core.isSurplus(*this));
    if (const auto* accepted = std::get_if<Router::Upgrade>(&verdict)) {
        upgrade(*accepted);
        return;
    }
    const bool unsent = head.hasBody() && unread().size() == m_parser.size();
    const bool awaitsContinue = unsent && head.expectsContinue();
    if (head.body == RequestHead::Body::Chunked) {
        m_chunks.emplace(m_core.options.maxBodyBytes);
    }
    if (auto* response = std::get_if<Response>(&verdict)) {
        // A body that is too large, or that its sender holds back, is not waited for.
        const bool large = head.body == RequestHead::Body::Sized && head.length > m_core.options.maxBodyBytes;
        const bool last = large || awaitsContinue || surplus;
        answer(std::move(*response), last);
        if (m_phase == Phase::Ending) {
            return;
        }
        if (!head.hasBody()) {
            endRequest();
            return;
        }
        m_phase = Phase::Skip;
        m_skip = head.length;
        if (m_chunks) {
            m_chunks->discard();
        }
        consume(m_parser.size());
        return;
    }
    m_route = std::move(std::get<Router::Proceed>(verdict).route);
    if (!head.hasBody()) {
        answer(handle(head, {}), false);
        if (m_phase != Phase::Ending) {
            endRequest();
        }
        return;
    }
    m_phase = Phase::Body;
    if (awaitsContinue) {
        m_out.append("HTTP/1.1 100 Continue\r\n\r\n");
    }
}

/// A request that there is no memory for is answered all the same: the shortage may be its own.
Response HttpSession::handle(const RequestHead& head, std::string_view body) {
    try {
        return m_core.router.handle(m_route, head, body);
    } catch (const std::bad_alloc&) {
        m_core.log("a request is given up: not enough memory");
        return Response::fromProblem({500, "there is not enough memory for the request"});
    }
}

void HttpSession::answer(Response response, bool close) {
    const RequestHead& head = m_parser.head();
    const bool last = close || !head.keepAlive || m_core.stopping();
    writeResponse(m_out, response, {head.isHead(), last, head.http10});
    if (!head.isHead()) {
        m_list = std::move(response.list);
        continueList();
    }
    if (last) {
        m_phase = Phase::Ending;
    }
}

/// Makes the next part of a list; false if there is none.
bool HttpSession::continueList() {
    if (!m_list) {
        return false;
    }
    const bool more = m_list->write(m_out, gatheredBytes);
    if (m_list->remaining() == 0) {
        m_list.reset();
    }
    return more;
}

/// The request was answered and lies at the front of the buffer, its body skipped or not there.
void HttpSession::endRequest() {
    if (m_phase == Phase::Head) {
        consume(m_parser.size());
    }
    m_parser.reset();
    m_chunks.reset();
    m_requestBegan.reset();
    m_phase = Phase::Head;
}

/// False when more bytes are needed, or none any more.
bool HttpSession::processBody() {
    if (m_phase == Phase::Skip && !m_chunks) {
        const std::size_t skipped = static_cast<std::size_t>(std::min<std::uint64_t>(m_skip, unread().size()));
        m_skip -= skipped;
        consume(skipped);
        if (m_skip > 0) {
            return false;
        }
        endRequest();
        return true;
    }
    if (m_phase == Phase::Skip) {
        std::size_t used = 0;
        const auto state = m_chunks->read(unread(), used);
        consume(used);
        if (state == ChunkDecoder::State::Complete) {
            endRequest();
            return true;
        }
        if (state != ChunkDecoder::State::Reading) {
            m_phase = Phase::Ending; // It was answered; what follows cannot be told from its body.
        }
        return false;
    }
    std::string_view body;
    if (!takeBody(body)) {
        return false;
    }
    const RequestHead& head = m_parser.rebind(unread());
    answer(handle(head, body), false);
    if (m_phase == Phase::Ending) {
        return false;
    }
    const std::size_t sized = m_chunks ? 0 : body.size();
    consume(m_parser.size() + sized);
    endRequest();
    return true;
}

/// The whole body, which lies behind the head or in the decoder. False: it is not there yet, or never will be.
bool HttpSession::takeBody(std::string_view& body) {
    const std::string_view behindHead = unread().substr(m_parser.size());
    if (!m_chunks) {
        const std::size_t length = static_cast<std::size_t>(m_parser.head().length);
        if (behindHead.size() < length) {
            return false;
        }
        body = behindHead.substr(0, length);
        return true;
    }
    std::size_t used = 0;
    const auto state = m_chunks->read(behindHead, used);
    // What the decoder took makes room; the head stays where it is.
    const std::size_t bodyBegin = m_begin + m_parser.size();
    m_in.erase(bodyBegin, used);
    m_end -= used;
    if (state == ChunkDecoder::State::Complete) {
        body = m_chunks->body();
        return true;
    }
    if (state != ChunkDecoder::State::Reading) {
        const bool large = state == ChunkDecoder::State::TooLarge;
        answer(Response::fromProblem({large ? 413 : 400, large ? "the body is too large" : "a malformed chunk"}), true);
    }
    return false;
}

void HttpSession::upgrade(const Router::Upgrade& accepted) {
    const bool tooMany = surplus;
    m_out.append(accepted.answer);
    consume(m_parser.size());
    const auto channel = std::make_shared<Channel>(m_core, std::move(m_transport), std::move(m_out));
    m_core.replace(shared_from_this(), channel);
    m_phase = Phase::Closed;
    channel->start(unread(), tooMany);
}

void HttpSession::write() {
    m_writing = true;
    for (int turn = 0; turn < turnsInARow; ++turn) {
        std::size_t bytes = 0;
        const Time before = m_core.now();
        if (!m_transport->writeNow(m_out.view(), bytes)) {
            m_writing = false;
            close();
            return;
        }
        if (bytes == 0) {
            break;
        }
        if (!sent(bytes, before)) {
            written();
            return;
        }
    }
    m_transport->asyncWriteSome(m_out.view(),
                                [this, self = shared_from_this()](boost::system::error_code error, std::size_t more) {
                                    if (error || m_phase == Phase::Closed) {
                                        close();
                                        return;
                                    }
                                    takeTurn([&] { sent(more, m_core.now()) ? write() : written(); });
                                });
}

/// Takes bytes off that went out; false once nothing is left to write.
bool HttpSession::sent(std::size_t bytes, Time when) {
    moved(when);
    if (m_out.consume(bytes)) {
        return true;
    }
    m_out.clear();
    return continueList();
}

void HttpSession::written() {
    m_writing = false;
    m_out.clear();
    if (m_phase == Phase::Ending) {
        drain();
        return;
    }
    if (unread().empty()) {
        m_out.shrink();
    }
    process();
}

/// Closing with bytes unread would make the system throw the answer away that the peer is about to read.
void HttpSession::drain() {
    m_phase = Phase::Draining;
    m_requestBegan.reset();
    m_lastByte = m_core.now();
    m_transport->endSending(shared_from_this());
    m_begin = m_end = 0;
    if (!m_reading) {
        read();
    }
}

} // namespace cdxservice
