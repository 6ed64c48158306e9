// The smallest useful application: prints every state and every data message of every client of the car data exchange
// service.
//
//     cdx-listener REGISTRY.json SERVICE.json

#include "Plumbing.h"

#include <CdxMoroClient.h>

#include <memory>
#include <string>

namespace {

using oru::Json::Value;
using plumbing::compact;
using plumbing::print;

/// Its handlers run one at a time on the framework's thread: what only they use needs no lock.
class Listener {
public:
    Listener(Value registry, Value service) {
        m_client->setMsgProcessorCallback([this](Value state) { announced(state); });
        m_client->setMsgProcessorDeleteCallback([this](std::string) { lost(); });
        m_client->StartCdxMoroClient(registry, service);
    }

    ~Listener() {
        m_client->StopCdxMoroClient(); // when it returns no handler runs any more
        m_client.reset();
        zepclient::CdxMoroClient::ReleaseCdxMoroClientThread();
    }

private:
    void announced(const Value& state) {
        const std::string name = state["name"].asString();
        m_client->setCdxClientStateRecieveHandler([this](Value changed) { toldState(changed); }, name);
        m_client->setCdxDataStateSubsRecieveHandler(
            [name](Value message) { print(name + ": data " + compact(message)); }, name);
        toldState(state);
    }

    void toldState(const Value& state) {
        print(state["name"].asString() + ": state " + compact(state));
        if (!m_subscribedToData) {
            m_subscribedToData = true;
            m_client->SubscribeToCdxDataObject();
        }
    }

    // The library drops the data subscription now, and tells all states anew when the service is back.
    void lost() {
        print("the service is lost");
        m_subscribedToData = false;
    }

    std::shared_ptr<zepclient::CdxMoroClient> m_client = zepclient::CdxMoroClient::getInstance();
    bool m_subscribedToData = false;
};

} // namespace

int main(int argc, char** argv) {
    return plumbing::runUntilSignalled<Listener>(argc, argv);
}
