#ifndef SERVICE_SRC_SUBSCRIPTION_H
#define SERVICE_SRC_SUBSCRIPTION_H

#include "OutBuffer.h"
#include "RevisionLog.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace cdxservice {

/// One subscription of a channel: a position in a resource's order, and nothing kept beside it. However far it lags, it
/// costs no more memory.
class Subscription {
public:
    struct Start {
        std::uint64_t sub = 0;
        std::size_t resource = 0;
        std::optional<std::string> id; ///< Only this element is of interest.
    };

    /// Begins at `position` if it can be resumed from there, otherwise at 0.
    Subscription(Start start, const RevisionLog& log, std::optional<Revision> position);

    std::uint64_t sub() const { return m_start.sub; }
    std::size_t resource() const { return m_start.resource; }
    bool resumed() const { return m_resumed; }

    /// Appends the next message as a frame, if it is found within the steps that are left; at least one is. False when
    /// there is nothing to tell for now.
    bool writeNext(OutBuffer& out, const RevisionLog& log, const std::string& epoch, std::size_t& steps);

private:
    void beginAnew(const RevisionLog& log);
    void writeEvent(OutBuffer& out, const RevisionLog::Entry& entry);
    void writeCurrent(OutBuffer& out, Revision revision);

    Start m_start;
    Revision m_position = 0;      ///< Up to here the order has been looked at.
    Revision m_removalsAfter = 0; ///< Removals up to here are no news: it began later, from nothing.
    Revision m_told = 0;          ///< The revision of the message before.
    bool m_resumed = false;
    bool m_current = false;
};

/// Appends a text message.
void writeTextFrame(OutBuffer& out, std::string_view message);

} // namespace cdxservice

#endif
