#include "Subscription.h"

#include "ClientMessage.h"
#include "Frames.h"
#include "StrictJson.h"

#include <algorithm>
#include <utility>

namespace cdxservice {

namespace {

/// The part of a message that differs from one subscriber to the next.
std::string& head(std::string& text, std::string_view op, std::uint64_t sub, Revision previous) {
    text.append("{\"op\":\"").append(op).append("\",\"sub\":");
    writeJsonInteger(text, sub);
    text.append(",\"prev\":");
    writeJsonInteger(text, previous);
    return text;
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

bool Subscription::writeNext(OutBuffer& out, const RevisionLog& log, const std::string& epoch) {
    if (log.forgotten() > std::max(m_position, m_removalsAfter)) {
        beginAnew(log);
        writeTextFrame(out, writeSubscribed(m_start.sub, epoch, false));
        return true;
    }
    for (;;) {
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
    }
}

void Subscription::writeEvent(OutBuffer& out, const RevisionLog::Entry& entry) {
    std::string message;
    head(message, "event", m_start.sub, m_told);
    m_told = entry.revision;
    if (!entry.element) {
        message.append(",\"rev\":");
        writeJsonInteger(message, entry.revision);
        message.append(",\"removed\":");
        writeJsonString(message, *entry.removedId);
        message.push_back('}');
        writeTextFrame(out, message);
        return;
    }
    const std::string_view tail = (*entry.element)->eventTail();
    writeFrameHeader(out.text(), Opcode::Text, message.size() + tail.size());
    out.append(message);
    out.append(tail, *entry.element);
}

void Subscription::writeCurrent(OutBuffer& out, Revision revision) {
    std::string message;
    head(message, "current", m_start.sub, m_told).append(",\"rev\":");
    writeJsonInteger(message, revision);
    message.push_back('}');
    writeTextFrame(out, message);
    m_position = m_told = revision;
}

} // namespace cdxservice
