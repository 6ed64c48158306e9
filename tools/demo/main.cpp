#include "Application.h"
#include "Documents.h"
#include "Exchanges.h"
#include "Timeline.h"
#include "Vehicle.h"

#include <cdxservice/Server.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using cdxtools::Application;
using cdxtools::eventIdOf;
using cdxtools::Exchanges;
using cdxtools::Timeline;
using cdxtools::Vehicle;

using Names = std::vector<std::string>;

const Names clients = {"navigation", "charging"};
const std::string serviceGone = "application is told that the service is gone";

// An end before the thirty seconds after which nobody waits any more, with time left to stop in order.
constexpr std::chrono::seconds patience(25);

Names ofEach(const std::string& before, const std::string& after) {
    Names names;
    for (const std::string& client : clients)
        names.push_back(before + client + after);
    return names;
}

Names receivedOfEach(const std::string& what) {
    return ofEach("application receives ", ": " + what);
}

Names dataOfEach(int number) {
    Names names;
    for (const std::string& client : clients)
        names.push_back("application receives " + client + ": data " + eventIdOf(client, number));
    return names;
}

Names operator+(Names left, const Names& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The demo from start to end; each step awaits what it set off.
class Demo {
public:
    Demo(Timeline& timeline, const std::string& documents)
        : m_timeline(timeline), m_documents(documents), m_vehicle(timeline, m_exchanges, clients),
          m_application(timeline, m_exchanges), m_service(serviceOptions()) {}

    /// Whether every planned exchange was completed.
    bool run() {
        try {
            for (const Step& step : m_steps) {
                m_timeline.chapter(step.title);
                (this->*step.act)();
                if (!m_exchanges.await(step.awaited))
                    break;
            }
        } catch (const std::exception& error) {
            m_timeline.event("demo", error.what());
        }
        m_timeline.chapter("The end");
        if (m_started)
            m_application.stop();
        m_service.stop();
        return report();
    }

private:
    struct Step {
        std::string title;
        void (Demo::*act)();
        Names awaited;
    };

    static Names planOf(const std::vector<Step>& steps) {
        Names plan;
        for (const Step& step : steps)
            plan = plan + step.awaited;
        return plan;
    }

    cdxservice::ServerOptions serviceOptions() {
        cdxservice::ServerOptions options;
        options.onSettled = [this](const cdxservice::Settlement& settlement) {
            m_vehicle.settled(settlement.clientName, settlement.eventId,
                              settlement.dataDeliveryResult.value_or("no result"));
        };
        return options;
    }

    void startAll() {
        startService();
        oru::Json::Value service = cdxtools::readDocument(m_documents + "/service.json");
        // The one thing that no file can know beforehand: which port was free.
        service["serverBaseUri"] = m_service.uri();
        m_application.start(cdxtools::readDocument(m_documents + "/registry.json"), service);
        m_started = true;
        forEachClient(&Vehicle::announce);
    }

    void startService() {
        m_service.start();
        m_vehicle.setServicePort(m_service.port());
        m_timeline.event("service", "listening on " + m_service.uri());
    }

    void exchangeData() {
        for (int number : {1, 2}) {
            for (const std::string& client : clients)
                m_vehicle.postData(client, number);
        }
    }

    void followOneMessage() { m_application.followLastMessage(); }

    void createElements() {
        for (const std::string& client : clients)
            m_application.createElements(client);
    }

    void updateElements() {
        for (const std::string& client : clients)
            m_application.updateElements(client);
    }

    void readElements() {
        for (const std::string& client : clients) {
            m_vehicle.lookUp(client, "cdxConfig");
            m_vehicle.lookUp(client, "cdxTrigger");
        }
    }

    void settleData() {
        for (const std::string& client : clients)
            m_application.settle(client, eventIdOf(client, 1));
    }

    void changeState() { forEachClient(&Vehicle::requestNewConfig); }

    void loseService() {
        m_timeline.event("service", "goes away");
        m_service.stop();
    }

    void exchangeAgain() {
        startService();
        for (const std::string& client : clients)
            m_vehicle.postData(client, 3);
    }

    void forEachClient(void (Vehicle::*act)(const std::string&)) {
        for (const std::string& client : clients)
            (m_vehicle.*act)(client);
    }

    bool report() {
        for (const std::string& name : m_exchanges.missing())
            m_timeline.plain("missing: " + name);
        m_timeline.plain("demo: " + std::to_string(m_exchanges.completed()) + " of " +
                         std::to_string(m_exchanges.planned()) + " exchanges completed");
        return m_exchanges.completed() == m_exchanges.planned();
    }

    const std::vector<Step> m_steps = {
        {"The service and the application start; two client applications of the vehicle announce themselves",
         &Demo::startAll, receivedOfEach("announced")},
        {"The vehicle posts data messages", &Demo::exchangeData, dataOfEach(1) + dataOfEach(2)},
        {"The application follows one message by itself",
         &Demo::followOneMessage,
         {"application receives " + clients.back() + ": followed message"}},
        {"The application creates a configuration record, a trigger message and a master control for each client",
         &Demo::createElements,
         ofEach("application creates cdxConfig of ", "") + ofEach("application creates cdxTrigger of ", "") +
             ofEach("application creates cdxMasterControls of ", "")},
        {"It updates the configuration records and the trigger messages", &Demo::updateElements,
         ofEach("application updates cdxConfig of ", "") + ofEach("application updates cdxTrigger of ", "")},
        {"The vehicle finds them", &Demo::readElements,
         ofEach("", " finds its element in cdxConfig") + ofEach("", " finds its element in cdxTrigger")},
        {"The application settles a data message of each client with its master control", &Demo::settleData,
         ofEach("application updates cdxMasterControls of ", "") + ofEach("", " is told what became of its message")},
        {"The vehicle changes the client states", &Demo::changeState, receivedOfEach("asks for a new configuration")},
        {"The service goes away", &Demo::loseService, {serviceGone}},
        {"It comes back, and exchange goes on", &Demo::exchangeAgain, dataOfEach(3)},
    };

    Timeline& m_timeline;
    const std::string m_documents;
    Exchanges m_exchanges{planOf(m_steps), patience};
    Vehicle m_vehicle;
    Application m_application;
    cdxservice::Server m_service;
    bool m_started = false;
};

} // namespace

int main(int argc, char** argv) {
    if (argc > 2) {
        std::fprintf(stderr, "usage: %s [FOLDER OF registry.json AND service.json]\n", argv[0]);
        return 2;
    }
    const std::string chatterFile = std::string(argv[0]) + ".log";
    try {
        Timeline timeline(chatterFile);
        timeline.plain("The framework's own lines go to " + chatterFile);
        return Demo(timeline, argc == 2 ? argv[1] : CDX_DEMO_DOCUMENTS).run() ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "demo: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
