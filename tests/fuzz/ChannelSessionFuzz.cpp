// A service's messages, a line each, to a client with three subscriptions, one of which it releases. What is held:
// nobody hears of what is refused or released, positions follow the messages, and after a break everything is asked for
// again.
#include "Hold.h"
#include "SilentLogger.h"
#include "SubscriptionTable.h"

#include <exception>
#include <set>
#include <sstream>
#include <vector>

namespace {

using cdxfuzz::hold;
using xal::Event;
using xal::SubscriptionTable;

class Client {
public:
    Client() {
        m_table.connected();
        for (const char* id : {"", "a", "b"}) {
            xal::SubscribeRequest request{id[0] == 0 ? xal::SubscribeRequest::RESOURCE : xal::SubscribeRequest::ELEMENT,
                                          "service", "resource", id};
            m_held.push_back(std::make_shared<xal::ActiveSubscription>(request, [](const Event&) {}));
            m_table.add(m_held.back());
        }
        hold(m_asked == m_held.size(), "all are asked for");
    }

    void take(const std::string& text) {
        try {
            if (m_table.take(xal::decodeMessage(*m_parser, text), text.size()) == SubscriptionTable::BROKEN)
                connectAgain();
        } catch (const std::exception&) {
            return; // it cannot be read
        }
        for (const auto& subscription : m_held) {
            const auto& progress = subscription->progress;
            hold(progress.expectedPrevious >= 0, "revisions are not negative");
            hold(!progress.isAnswered || !progress.position || progress.position->revision == progress.expectedPrevious,
                 "the next message follows the position");
        }
    }

    void releaseLast() {
        m_held.back()->release();
        m_table.remove(m_held.back());
        m_gone.insert(m_held.back().get());
    }

private:
    void connectAgain() {
        m_table.disconnected();
        m_table.connected();
        m_asked = 0;
        m_table.subscribeAll();
        hold(m_asked == m_held.size() - m_gone.size(), "all that is held is asked for again");
    }

    bool deliver(const SubscriptionTable::Subscription& subscription, const Event& event) {
        hold(m_gone.count(subscription.get()) == 0, "nothing is told of what is refused or released");
        hold((event.kind == Event::CHANGED) == (event.element != nullptr), "a change has its element");
        if (event.kind == Event::REFUSED)
            m_gone.insert(subscription.get());
        return true;
    }

    cdxfuzz::SilentLogger m_logger;
    const std::shared_ptr<xalutil::JsonParser> m_parser = xalutil::JsonFactory::createJsonParser();
    std::vector<SubscriptionTable::Subscription> m_held;
    std::set<const xal::ActiveSubscription*> m_gone;
    std::size_t m_asked = 0;
    SubscriptionTable m_table{{[this](const std::string& text) {
                                   hold(text.size() <= 65'536, "a service takes it");
                                   m_asked += text.find("\"unsubscribe\"") == std::string::npos ? 1 : 0;
                               },
                               [this](const SubscriptionTable::Subscription& subscription, const Event& event,
                                      std::size_t) { return deliver(subscription, event); },
                               [] { return SubscriptionTable::Duration(0); }},
                              m_logger,
                              std::chrono::seconds(1)};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream lines(std::string(data, data + size));
    Client client;
    std::string line;
    for (int count = 0; std::getline(lines, line); ++count) {
        client.take(line);
        if (count == 4)
            client.releaseLast();
    }
    return 0;
}
