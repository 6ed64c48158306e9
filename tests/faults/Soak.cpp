// Keeps an exchange under random faults for ten minutes, or as many seconds as the first argument says, and counts:
// every request must have one result, every subscriber must end with the service's state, and the second half must
// leave no memory and no descriptor behind. The second argument is the seed of the faults; it is printed, so that a run
// can be repeated.
#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/ComesTrue.h>
#include <support/FaultProxy.h>
#include <support/HttpTestClient.h>
#include <support/ProcessState.h>

#include <boost/json/parse.hpp>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <random>
#include <string>

namespace {

using namespace cdxtest;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t users = 4;

/// What may be allocated more at the end than halfway: what stands in containers and at the allocators' hand differs.
constexpr long differingBytes = 64 * 1024;
/// And for each loss of a connection between: the harness keeps its service objects, and what was told.
constexpr long bytesOfALoss = 256;

struct Counts {
    std::size_t faults = 0;
    std::size_t requests = 0;
    std::size_t failed = 0;
    std::size_t lost = 0;
    std::size_t doubled = 0;
    std::size_t differing = 0;
    std::size_t rests = 0;    ///< names made for a rest
    std::size_t restless = 0; ///< rests to which the connections did not come
};

/// Of all four programs and the service, which are one process here.
struct Memory {
    long resident = residentKib();
    long allocated = allocatedBytes();
    std::size_t descriptors = openDescriptors().size();
};

std::ostream& operator<<(std::ostream& out, const Memory& memory) {
    return out << memory.resident << " kB (" << memory.allocated / 1024 << " KiB allocated, " << memory.descriptors
               << " descriptors)";
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

std::size_t lossesOf(const std::vector<std::unique_ptr<FrameworkUser>>& all) {
    std::size_t losses = 0;
    for (const auto& user : all)
        losses += user->client.told.count("disconnected");
    return losses;
}

void countResults(std::vector<std::unique_ptr<FrameworkUser>>& all, Counts& counts) {
    for (auto& user : all)
        for (const auto& [name, results] : user->takeResults())
            counts.doubled += results > 1 ? 1 : 0;
}

/// Brings all to a state that can be compared: each user has two connections, for its requests and its events, and
/// nobody has another. Comes after settle().
Memory rest(std::vector<std::unique_ptr<FrameworkUser>>& all, FaultProxy& proxy, Counts& counts) {
    proxy.cut(FaultProxy::Direction::ToServer, std::string::npos, FaultProxy::End::Close); // instead of one to come
    proxy.endAll(FaultProxy::End::Close); // those that were silenced stay open otherwise
    std::string last;
    for (auto& user : all) {
        // The first request may meet the end of its connection.
        for (int status = 0, tries = 0; status != 201 && tries < 3; ++tries) {
            last = "rest-" + std::to_string(++counts.rests);
            user->create(last);
            status = user->statusOf(last);
            counts.lost += status == -1 ? 1 : 0;
        }
    }
    for (auto& user : all)
        counts.differing += user->sees(last) ? 0 : 1;
    countResults(all, counts);
    counts.restless += proxy.waitFor([](const FaultProxy::Counts& now) { return now.open == 2 * users; }) ? 0 : 1;
    return {};
}

/// Whether more is held than halfway, but for what may differ. What is just being closed gets its time.
bool isLeaking(const Memory& halfway, std::size_t losses) {
    const long most = halfway.allocated + differingBytes + bytesOfALoss * static_cast<long>(losses);
    return !comesTrue([&] {
        const Memory now;
        return now.allocated <= most && now.descriptors <= halfway.descriptors;
    });
}

} // namespace

int main(int argc, char** argv) {
    const auto duration = std::chrono::seconds(argc > 1 ? std::strtol(argv[1], nullptr, 10) : 600);
    const auto seed = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : std::random_device{}();
    std::cout << "soak: " << duration.count() << " s, seed " << seed << std::endl;
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));

    cdxservice::ServerOptions options;
    // So few that they are soon as many as they ever will be: what is remembered of removals must not look like growth.
    cdxservice::Store::Options storeOptions;
    storeOptions.keptRemovals = 20;
    options.store = std::make_shared<cdxservice::Store>(nullptr, storeOptions);
    cdxservice::Server service(options);
    service.start();
    FaultProxy proxy(service.port());
    std::vector<std::unique_ptr<FrameworkUser>> all;
    for (std::size_t i = 0; i < users; ++i) {
        all.push_back(std::make_unique<FrameworkUser>(proxy.port(), 300, 300));
        all.back()->client.setting.requestTimeout.setValue(1000);
        // What the harness keeps must not look like growth.
        all.back()->client.log->keepLatest(10);
        all.back()->client.executorLog->keepLatest(10);
        if (!all.back()->start())
            return 1;
    }

    Counts counts;
    std::optional<Memory> first;
    std::optional<Memory> halfway;
    std::size_t lossesHalfway = 0;
    const auto end = steady_clock::now() + duration;
    std::size_t round = 0;
    do {
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
        countResults(all, counts);
        if (!first)
            first = rest(all, proxy, counts);
        if (!halfway && steady_clock::now() >= end - duration / 2) {
            halfway = rest(all, proxy, counts);
            lossesHalfway = lossesOf(all);
        }
        ++round;
    } while (steady_clock::now() < end);
    rest(all, proxy, counts);
    const std::size_t losses = lossesOf(all);
    const bool hasLeaked = isLeaking(*halfway, losses - lossesHalfway);
    const Memory last;
    std::size_t notifications = 0;
    for (auto& user : all) {
        user->stop();
        notifications += user->notifications();
    }
    std::cout << "soak: " << counts.faults << " faults, " << losses << " losses of a connection, " << counts.requests
              << " requests (" << counts.failed << " failed), " << notifications << " notifications\n"
              << "soak: " << counts.lost << " results lost, " << counts.doubled << " doubled, " << counts.differing
              << " subscribers with another state than the service's, " << counts.restless << " rests without rest\n"
              << "soak: memory after a round " << *first << ", halfway " << *halfway << ", at the end " << last
              << (hasLeaked ? ": something leaks" : "") << "\n";
    return counts.lost + counts.doubled + counts.differing + counts.restless == 0 && !hasLeaked ? 0 : 1;
}
