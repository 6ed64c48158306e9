#include "Subscription.h"

#include "ClientMessage.h"
#include "Frames.h"
#include "StrictJson.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace cdxservice {

namespace {

/// The part of a message that differs from one subscriber to the next, made without an allocation.
class Head {
public:
    Head(std::string_view op, std::uint64_t sub, Revision previous) {
        put("{\"op\":\"");
        put(op);
        put("\",\"sub\":");
        put(sub);
        put(",\"prev\":");
        put(previous);
    }
    operator std::string_view() const { return {m_text.data(), m_size}; }

private:
    void put(std::string_view text) {
        text.copy(m_text.data() + m_size, text.size());
        m_size += text.size();
    }
    void put(std::uint64_t number) {
        const auto end = std::to_chars(m_text.data() + m_size, m_text.data() + m_text.size(), number).ptr;
        m_size = static_cast<std::size_t>(end - m_text.data());
    }

    std::array<char, 96> m_text; ///< Two numbers of at most 20 digits, and what stands between them.
    std::size_t m_size = 0;
};

void writeMessage(OutBuffer& out, const Head& head, std::string_view tail, const ElementPtr& owner) {
    const std::string_view begin = head;
    writeFrameHeader(out.text(), Opcode::Text, begin.size() + tail.size());
    out.append(begin);
    if (owner) {
        out.append(tail, owner);
    } else {
        out.append(tail);
    }
}

} // namespace

void writeTextFrame(OutBuffer& out, std::string_view message) {
    writeFrameHeader(out.text(), Opcode::Text, message.size());
    out.append(message);
}

Subscription::Subscription(Start start, const RevisionLog& log, std::optional<Revision> position)
    : m_start(std::move(start)) {
    if (position && *position <= log.latest() && *position >= log.forgotten()) {
        m_position = m_told = *position;
        m_resumed = true;
    } else {
        beginAnew(log);
    }
}

void Subscription::beginAnew(const RevisionLog& log) {
    m_position = m_told = 0;
    m_removalsAfter = log.latest();
    m_current = false;
    m_resumed = false;
}

bool Subscription::writeNext(OutBuffer& out, const RevisionLog& log, const std::string& epoch, std::size_t& steps) {
    --steps;
    if (log.forgotten() > std::max(m_position, m_removalsAfter)) {
        beginAnew(log);
        writeTextFrame(out, writeSubscribed(m_start.sub, epoch, false));
        return true;
    }
    for (;; --steps) {
        const RevisionLog::Entry entry = log.after(m_position, m_removalsAfter);
        if (entry.revision == 0) {
            if (m_current) {
                return false;
            }
            m_current = true;
            writeCurrent(out, log.latest());
            return true;
        }
        m_position = entry.revision;
        const std::string& id = entry.element ? (*entry.element)->id() : *entry.removedId;
        if (!m_start.id || *m_start.id == id) {
            writeEvent(out, entry);
            return true;
        }
        if (steps == 0) {
            return true;
        }
    }
}

void Subscription::writeEvent(OutBuffer& out, const RevisionLog::Entry& entry) {
    const Head head("event", m_start.sub, m_told);
    m_told = entry.revision;
    if (entry.element) {
        writeMessage(out, head, (*entry.element)->eventTail(), *entry.element);
        return;
    }
    std::string tail = ",\"rev\":";
    writeJsonInteger(tail, entry.revision);
    tail.append(",\"removed\":");
    writeJsonString(tail, *entry.removedId);
    tail.push_back('}');
    writeMessage(out, head, tail, nullptr);
}

void Subscription::writeCurrent(OutBuffer& out, Revision revision) {
    std::string tail = ",\"rev\":";
    writeJsonInteger(tail, revision);
    tail.push_back('}');
    writeMessage(out, Head("current", m_start.sub, m_told), tail, nullptr);
    m_position = m_told = revision;
}

} // namespace cdxservice
