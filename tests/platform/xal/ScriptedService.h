#ifndef CDXTESTS_PLATFORM_XAL_SCRIPTEDSERVICE_H
#define CDXTESTS_PLATFORM_XAL_SCRIPTEDSERVICE_H

#include <support/Tcp.h>
#include <support/WebSocketPeer.h>

#include <boost/json/object.hpp>

#include <cstdint>
#include <string>

namespace xaltest {

/// A service played by the test: it says on its channel exactly what the test makes it say.
class ScriptedService {
public:
    ScriptedService() { m_listener.listen(); }

    std::string uri() const { return "http://127.0.0.1:" + std::to_string(m_listener.port()); }
    cdxtest::Listener& listener() { return m_listener; }
    /// The next client's channel. Throws when none comes.
    cdxtest::WebSocketPeer accept();
    /// The next client's connection, before it said anything. Throws when none comes.
    cdxtest::TcpPeer acceptTcp(std::chrono::milliseconds within = cdxtest::patience);
    /// Takes the next client's request and answers it; `status` with its reason. Throws when none comes.
    void answerRequest(const std::string& status, const std::string& body = {});

private:
    cdxtest::Listener m_listener;
};

/// The client's next message. Throws when none comes.
boost::json::object readMessage(cdxtest::WebSocketPeer& channel);

std::string subscribed(std::int64_t number, bool isResumed = false, const std::string& epoch = "0123456789abcdef");
std::string changed(std::int64_t number, std::int64_t previous, std::int64_t revision, const std::string& id,
                    const std::string& name = "n");
std::string removed(std::int64_t number, std::int64_t previous, std::int64_t revision, const std::string& id);
std::string current(std::int64_t number, std::int64_t previous, std::int64_t revision);
std::string refused(std::int64_t number, int status);

} // namespace xaltest

#endif
