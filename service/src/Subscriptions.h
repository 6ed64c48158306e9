#ifndef SERVICE_SRC_SUBSCRIPTIONS_H
#define SERVICE_SRC_SUBSCRIPTIONS_H

#include "Subscription.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace cdxservice {

class Exchange;

/// The subscriptions of one channel, and which of them may have something to tell.
///
/// One that has told everything is not looked at again before its resource changes, and a turn takes a bounded number
/// of steps: however many subscriptions a client makes, the others get their turn. Whoever is cut off goes on after the
/// channel's other subscriptions had theirs.
class Subscriptions {
public:
    explicit Subscriptions(const Exchange& exchange);

    /// Its number is above all earlier ones.
    void add(const Subscription& subscription);
    void remove(std::uint64_t sub);
    void clear();
    /// About the memory that they hold.
    std::size_t held() const;

    /// Appends messages until `out` holds at least `enough` bytes, nothing is left, or the turn is over. False when
    /// nothing is left for now.
    bool write(OutBuffer& out, std::size_t enough);

private:
    struct OfResource {
        std::map<std::uint64_t, Subscription> all;
        std::uint64_t next = none; ///< Those from here on may have something to tell,
        bool again = false;        ///< and after them those before it.
        Revision seen = 0;         ///< The resource's revision when that was last noted.

        static constexpr std::uint64_t none = UINT64_MAX;
    };
    bool write(OfResource& those, std::size_t resource, OutBuffer& out, std::size_t enough, std::size_t& steps);

    const Exchange& m_exchange;
    std::vector<OfResource> m_resources;
    std::size_t m_turn = 0; ///< The resource that is served first.
};

} // namespace cdxservice

#endif
