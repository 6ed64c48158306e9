// Keeps an exchange under random faults for ten minutes, or as many seconds as the first argument says, and counts:
// every request must have one result, every subscriber must end with the service's state. The second argument is the
// seed of the faults; it is printed, so that a run can be repeated.
#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/FaultProxy.h>
#include <support/HttpTestClient.h>
#include <support/ProcessState.h>

#include <boost/json/parse.hpp>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <malloc.h>
#include <random>
#include <string>

namespace {

using namespace cdxtest;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t users = 4;

struct Counts {
    std::size_t faults = 0;
    std::size_t requests = 0;
    std::size_t failed = 0;
    std::size_t lost = 0;
    std::size_t doubled = 0;
    std::size_t differing = 0;
};

/// Of all four programs and the service, which are one process here.
struct Memory {
    long resident = residentKib();
    std::size_t allocated =
        ::mallinfo2().uordblks / 1024; ///< asked for and not given back, in KiB; 0 under a sanitizer
    std::size_t descriptors = openDescriptors().size();
};

std::ostream& operator<<(std::ostream& out, const Memory& memory) {
    return out << memory.resident << " kB (" << memory.allocated << " KiB allocated, " << memory.descriptors
               << " descriptors)";
}

std::map<std::string, int> storedAt(std::uint16_t port) {
    HttpTestClient client(port);
    std::map<std::string, int> names;
    const auto elements = boost::json::parse(client.get("/CarDataExchange/cdxConfig").body);
    for (const auto& element : elements.as_array())
        ++names[std::string(element.at("name").as_string())];
    return names;
}

/// One fault, drawn at random: what happens to the connections, or to the service.
void inflict(std::mt19937& random, FaultProxy& proxy, cdxservice::Server& service) {
    const auto number = [&](std::size_t below) {
        return std::uniform_int_distribution<std::size_t>(0, below - 1)(random);
    };
    const FaultProxy::End ends[] = {FaultProxy::End::Close, FaultProxy::End::Reset, FaultProxy::End::Silence};
    FaultProxy::Travel travel;
    switch (number(8)) {
    case 0:
        return proxy.endAll(ends[number(3)]);
    case 1:
        return proxy.cut(FaultProxy::Direction::ToServer, number(2000), ends[number(3)]);
    case 2:
        return proxy.cut(FaultProxy::Direction::ToClient, number(2000), ends[number(3)]);
    case 3:
        travel.latency = milliseconds(number(50));
        break;
    case 4:
        travel.slice = 1 + number(50);
        break;
    case 5:
        travel.bytesPerSecond = 20'000 + number(1'000'000);
        break;
    case 6:
        proxy.refuse(true);
        proxy.endAll(FaultProxy::End::Close);
        return;
    default:
        service.stop();
        service.start();
        return;
    }
    proxy.setTravel(travel);
}

/// Lets everything through again, and waits until every user has the service's state.
void settle(std::vector<std::unique_ptr<FrameworkUser>>& all, FaultProxy& proxy, std::uint16_t port, std::size_t round,
            Counts& counts) {
    proxy.refuse(false);
    proxy.setTravel({});
    const std::string last = "round-" + std::to_string(round);
    // A silenced connection may take a request with it: the mark is made at the service itself.
    HttpTestClient vehicle(port);
    vehicle.post("/CarDataExchange/cdxConfig", R"({"name":")" + last + R"("})");
    for (auto& user : all) {
        bool isEqual = user->sees(last);
        // Removals show with a later change.
        for (int i = 0; isEqual && user->names() != storedAt(port) && i < 20; ++i) {
            const std::string name = last + "-" + std::to_string(i);
            vehicle.post("/CarDataExchange/cdxConfig", R"({"name":")" + name + R"("})");
            isEqual = user->sees(name);
        }
        counts.differing += isEqual && user->names() == storedAt(port) ? 0 : 1;
    }
    const auto elements = boost::json::parse(vehicle.get("/CarDataExchange/cdxConfig").body);
    for (const auto& element : elements.as_array())
        vehicle.request("DELETE", std::string(element.at("uri").as_string()));
}

} // namespace

int main(int argc, char** argv) {
    const auto duration = std::chrono::seconds(argc > 1 ? std::strtol(argv[1], nullptr, 10) : 600);
    const auto seed = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : std::random_device{}();
    std::cout << "soak: " << duration.count() << " s, seed " << seed << std::endl;
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));

    cdxservice::ServerOptions options;
    options.store = std::make_shared<cdxservice::Store>();
    cdxservice::Server service(options);
    service.start();
    FaultProxy proxy(service.port());
    std::vector<std::unique_ptr<FrameworkUser>> all;
    for (std::size_t i = 0; i < users; ++i) {
        all.push_back(std::make_unique<FrameworkUser>(proxy.port(), 300));
        all.back()->client.setting.requestTimeout.setValue(1000);
        // What the harness keeps must not look like growth.
        all.back()->client.log->keepLatest(100);
        all.back()->client.executorLog->keepLatest(100);
        if (!all.back()->start())
            return 1;
    }

    Counts counts;
    Memory first;
    Memory halfway;
    const auto end = steady_clock::now() + duration;
    for (std::size_t round = 0; steady_clock::now() < end; ++round) {
        std::vector<std::string> names;
        for (int fault = 0; fault < 5; ++fault) {
            inflict(random, proxy, service);
            ++counts.faults;
            for (auto& user : all) {
                names.push_back(std::to_string(round) + "." + std::to_string(names.size()));
                user->create(names.back());
            }
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
            const int status = all[i % users]->statusOf(names[i]);
            ++counts.requests;
            counts.failed += status == 201 ? 0 : 1;
            counts.lost += status == -1 ? 1 : 0;
        }
        settle(all, proxy, service.port(), round, counts);
        for (auto& user : all)
            for (const auto& [name, results] : user->takeResults())
                counts.doubled += results > 1 ? 1 : 0;
        if (round <= 10)
            first = Memory();
        if (steady_clock::now() < end - duration / 2)
            halfway = Memory();
    }
    const Memory last = Memory();
    std::size_t notifications = 0;
    std::size_t losses = 0;
    for (auto& user : all) {
        user->stop();
        notifications += user->notifications();
        losses += user->client.told.count("disconnected");
    }
    std::cout << "soak: " << counts.faults << " faults, " << losses << " losses of a connection, " << counts.requests
              << " requests (" << counts.failed << " failed), " << notifications << " notifications\n"
              << "soak: " << counts.lost << " results lost, " << counts.doubled << " doubled, " << counts.differing
              << " subscribers with another state than the service's\n"
              << "soak: memory after ten rounds " << first << ", halfway " << halfway << ", at the end " << last
              << "\n";
    return counts.lost + counts.doubled + counts.differing == 0 ? 0 : 1;
}
