#include "Subscriptions.h"

#include "Exchange.h"
#include "Schema.h"

#include <algorithm>

namespace cdxservice {

namespace {

constexpr std::size_t stepsOfATurn = 1000;

} // namespace

Subscriptions::Subscriptions(const Exchange& exchange) : m_exchange(exchange), m_resources(schema().size()) {}

void Subscriptions::add(const Subscription& subscription) {
    OfResource& those = m_resources[subscription.resource()];
    those.all.emplace_hint(those.all.end(), subscription.sub(), subscription);
    those.next = std::min(those.next, subscription.sub());
}

void Subscriptions::remove(std::uint64_t sub) {
    for (OfResource& those : m_resources) {
        those.all.erase(sub);
    }
}

void Subscriptions::clear() {
    for (OfResource& those : m_resources) {
        those.all.clear();
    }
}

std::size_t Subscriptions::held() const {
    constexpr std::size_t linksOfANode = 4 * sizeof(void*);
    std::size_t count = 0;
    for (const OfResource& those : m_resources) {
        count += those.all.size();
    }
    return count * (sizeof(Subscription) + sizeof(std::uint64_t) + linksOfANode);
}

bool Subscriptions::write(OutBuffer& out, std::size_t enough) {
    std::size_t steps = stepsOfATurn;
    for (std::size_t i = 0; i < m_resources.size(); ++i) {
        const std::size_t resource = m_turn;
        m_turn = (m_turn + 1) % m_resources.size();
        if (write(m_resources[resource], resource, out, enough, steps)) {
            return true;
        }
    }
    return false;
}

bool Subscriptions::write(OfResource& those, std::size_t resource, OutBuffer& out, std::size_t enough,
                          std::size_t& steps) {
    const RevisionLog& log = m_exchange.resource(resource).log();
    if (those.seen != log.latest()) {
        those.seen = log.latest();
        those.again = those.next != OfResource::none;
        those.next = those.again ? those.next : 0;
    }
    while (those.next != OfResource::none) {
        for (auto at = those.all.lower_bound(those.next); at != those.all.end();) {
            those.next = at->first;
            if (steps == 0 || out.size() >= enough) {
                return true;
            }
            const bool more = at->second.writeNext(out, log, m_exchange.epoch(), steps);
            const bool isCutOff = more && out.size() >= enough;
            if (!more || isCutOff) {
                ++at;
            }
            those.again = those.again || isCutOff;
        }
        those.next = those.again ? 0 : OfResource::none;
        those.again = false;
    }
    return false;
}

} // namespace cdxservice
