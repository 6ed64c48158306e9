#include "Channel.h"

#include "Release.h"
#include "ServerCore.h"

#include <boost/asio/post.hpp>

#include <utility>

namespace cdxservice {

namespace {

constexpr std::size_t maxMessageBytes = 65'536;
/// What is gathered before it is handed to the socket.
constexpr std::size_t gatheredBytes = 32'768;
constexpr int turnsInARow = 4;
/// With more answers waiting the client is not read.
constexpr std::size_t maxReplyBytes = 65'536;
/// How long a peer may take to end its side after a close frame was sent, or to take that frame.
constexpr std::chrono::seconds endingTime(5);

} // namespace

Channel::Channel(ServerCore& core, std::unique_ptr<Transport> transport, OutBuffer out)
    : m_core(core), m_transport(std::move(transport)), m_frames(maxMessageBytes), m_out(std::move(out)),
      m_subscriptions(core.exchange), m_lastTaken(core.now()) {}

void Channel::start(std::string_view received, bool tooMany) {
    guarded(m_core, [&] {
        m_writing = true;
        if (tooMany) {
            end(CloseCode::TooMany);
        }
        take(received);
        write();
        resumeReading();
    });
}

void Channel::checkTime(Time now) {
    const bool endless = m_phase != Phase::Open && now - m_endingSince >= endingTime;
    const bool stalled = m_writing && now - m_lastTaken >= m_core.options.stallTimeout;
    if (endless || stalled) {
        close();
    }
}

std::size_t Channel::held() const {
    return beyondOwn(m_out.held()) + beyondOwn(m_replies.capacity()) + beyondOwn(m_frames.held()) +
           beyondOwn(m_subscriptions.held());
}

void Channel::stop() {
    guarded(m_core, [this] { end(CloseCode::Stopping); });
}

void Channel::close() {
    if (m_phase == Phase::Closed) {
        return;
    }
    m_phase = Phase::Closed;
    m_transport->close();
    m_core.remove(shared_from_this());
}

void Channel::wake() {
    guarded(m_core, [this] {
        if (m_phase == Phase::Open && !m_writing && fill()) {
            beginWriting();
        }
    });
}

void Channel::read() {
    m_reading = true;
    m_transport->asyncReadSome(boost::asio::buffer(m_in),
                               [this, self = shared_from_this()](boost::system::error_code error, std::size_t bytes) {
                                   m_reading = false;
                                   if (error || m_phase == Phase::Closed) {
                                       close();
                                       return;
                                   }
                                   if (!m_writing) {
                                       progress(m_core);
                                   }
                                   guarded(m_core, [&] {
                                       take({m_in.data(), bytes});
                                       wake();
                                       resumeReading();
                                   });
                               });
}

void Channel::take(std::string_view input) {
    while (m_phase == Phase::Open) {
        const FrameReader::Event event = m_frames.next(input);
        switch (event.kind) {
        case FrameReader::Event::Kind::More:
            return;
        case FrameReader::Event::Kind::Message:
            takeMessage(event.payload);
            break;
        case FrameReader::Event::Kind::Ping:
            writeFrameHeader(m_replies, Opcode::Pong, event.payload.size());
            m_replies.append(event.payload);
            break;
        case FrameReader::Event::Kind::Close:
        case FrameReader::Event::Kind::Failure:
            end(event.code);
            break;
        }
    }
}

void Channel::takeMessage(std::string_view text) {
    ClientMessage message = readClientMessage(text);
    if (!message.readable) {
        reply(writeError(std::nullopt, *message.problem));
        end(CloseCode::NotReadable);
        return;
    }
    if (message.subscribes) {
        subscribe(std::move(message));
    } else if (message.problem) {
        reply(writeError(message.sub, *message.problem));
    } else {
        m_subscriptions.remove(message.sub);
    }
}

void Channel::subscribe(ClientMessage message) {
    const bool rises = !m_highestSub || message.sub > *m_highestSub;
    if (rises) {
        m_highestSub = message.sub;
    }
    const auto resource = findResource(message.resource);
    if (!message.problem && !rises) {
        message.problem = Problem{409, "\"sub\" is not above all earlier ones"};
    }
    if (!message.problem && !resource) {
        message.problem = Problem{404, "there is no such resource"};
    }
    if (message.problem) {
        reply(writeError(message.sub, *message.problem));
        return;
    }
    m_core.exchange.expire();
    std::optional<Revision> position;
    if (message.since && message.since->epoch == m_core.exchange.epoch()) {
        position = message.since->revision;
    }
    const Subscription subscription({message.sub, *resource, std::move(message.id)},
                                    m_core.exchange.resource(*resource).log(), position);
    reply(writeSubscribed(message.sub, m_core.exchange.epoch(), subscription.resumed()));
    m_subscriptions.add(subscription);
}

void Channel::reply(std::string_view message) {
    writeFrameHeader(m_replies, Opcode::Text, message.size());
    m_replies.append(message);
}

void Channel::end(CloseCode code) {
    if (m_phase != Phase::Open) {
        return;
    }
    m_phase = Phase::Ending;
    m_endingSince = m_core.now();
    m_subscriptions.clear();
    writeCloseFrame(m_replies, code);
    if (!m_writing) {
        fill();
        beginWriting();
    }
}

/// Makes the next messages; false if there are none.
bool Channel::fill() {
    m_out.append(m_replies);
    m_replies.clear();
    const bool more = m_subscriptions.write(m_out, gatheredBytes);
    if (more && m_out.empty()) {
        takeAnotherTurn();
    }
    return !m_out.empty();
}

/// Nothing was found so far that needs writing; what would be looked at next waits until the others had their turn.
void Channel::takeAnotherTurn() {
    if (m_turnDue) {
        return;
    }
    boost::asio::post(m_core.io, [this, self = shared_from_this()] {
        m_turnDue = false;
        wake();
    });
    m_turnDue = true;
}

void Channel::beginWriting() {
    m_writing = true;
    taken(m_core.now());
    write();
}

/// The peer took bytes, or there begin to be some to take.
void Channel::taken(Time when) {
    m_lastTaken = when;
    progress(m_core);
}

void Channel::write() {
    // A client that takes everything at once still lets the others have their turn.
    for (int turn = 0; turn < turnsInARow; ++turn) {
        std::size_t bytes = 0;
        const Time before = m_core.now();
        if (!m_transport->writeNow(m_out.view(), bytes)) {
            close();
            return;
        }
        if (bytes == 0) {
            break;
        }
        taken(before);
        if (m_out.consume(bytes)) {
            break;
        }
        m_out.clear();
        if (!fill()) {
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
                                    taken(m_core.now());
                                    guarded(m_core, [&] {
                                        if (!m_out.consume(more)) {
                                            m_out.clear();
                                            if (!fill()) {
                                                written();
                                                return;
                                            }
                                        }
                                        write();
                                        resumeReading();
                                    });
                                });
}

void Channel::written() {
    m_writing = false;
    m_out.clear();
    m_out.shrink();
    if (m_replies.capacity() > ownBuffer) {
        release(m_replies);
    }
    if (m_phase == Phase::Ending) {
        m_phase = Phase::Draining;
        m_transport->endSending(shared_from_this());
    }
    resumeReading();
}

void Channel::resumeReading() {
    if (!m_reading && m_phase != Phase::Closed && m_replies.size() <= maxReplyBytes) {
        read();
    }
}

} // namespace cdxservice
