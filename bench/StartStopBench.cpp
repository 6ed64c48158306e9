// What coming up and going down cost over loopback: from StartCdxMoroClient to the first client-state handler's call,
// and StopCdxMoroClient, each beside a bare TCP connect, WebSocket upgrade, subscription and first message in the same
// run.

#include "LoadClient.h"

#include <CdxMoroClient.h>
#include <cdxservice/Server.h>
#include <oru/Json.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <future>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace asio = boost::asio;
namespace websocket = boost::beast::websocket;

using Clock = std::chrono::steady_clock;
using oru::Json::Value;

constexpr int cycles = 300;

double microseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

double medianOf(std::vector<double> samples) {
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2), samples.end());
    return samples[samples.size() / 2];
}

/// The least that any client does before it holds its first element.
double bareStart(std::uint16_t port) {
    const Clock::time_point start = Clock::now();
    asio::io_context io;
    websocket::stream<asio::ip::tcp::socket> stream(io);
    stream.next_layer().connect({asio::ip::address_v4::loopback(), port});
    stream.next_layer().set_option(asio::ip::tcp::no_delay(true));
    stream.set_option(websocket::stream_base::decorator(
        [](websocket::request_type& request) { request.set("Sec-WebSocket-Protocol", "cdx.v1"); }));
    stream.handshake("127.0.0.1:" + std::to_string(port), "/CarDataExchange");
    stream.write(asio::buffer(std::string(R"({"op":"subscribe","sub":1,"resource":"cdxClientStates"})")));
    boost::beast::flat_buffer subscribed, event;
    stream.read(subscribed);
    stream.read(event);
    return microseconds(Clock::now() - start);
}

struct Cycle {
    double start, stop;
};

Cycle clientCycle(const std::string& serviceUri) {
    std::promise<void> announced;
    auto client = zepclient::CdxMoroClient::getInstance();
    client->setMsgProcessorCallback([&](Value) { announced.set_value(); });
    Value registry, service;
    registry["mode"] = "static";
    service["serverBaseUri"] = serviceUri;

    const Clock::time_point start = Clock::now();
    client->StartCdxMoroClient(registry, service);
    if (announced.get_future().wait_for(std::chrono::seconds(30)) != std::future_status::ready)
        throw std::runtime_error("the client state did not come");
    const Clock::time_point told = Clock::now();
    client->StopCdxMoroClient();
    const Clock::time_point stopped = Clock::now();

    client.reset();
    zepclient::CdxMoroClient::ReleaseCdxMoroClientThread();
    return {microseconds(told - start), microseconds(stopped - told)};
}

void print(const char* what, double time, double reference) {
    std::fprintf(stderr, "%-56s %8.0f us   %5.2f times the bare start\n", what, time, time / reference);
}

void run() {
    cdxservice::Server service;
    service.start();
    LoadClient(service.port())
        .request("POST", "/CarDataExchange/cdxClientStates",
                 R"({"name":"bench","canonicalName":"bench","isNewConfigRequested":false,"isShutdownRequested":false,)"
                 R"("offeredDataType":["telemetry"]})");
    std::vector<double> bare, starts, stops;
    for (int i = 0; i < cycles; ++i) {
        bare.push_back(bareStart(service.port()));
        const Cycle cycle = clientCycle(service.uri());
        starts.push_back(cycle.start);
        stops.push_back(cycle.stop);
    }
    const double reference = medianOf(bare);
    print("bare connect, upgrade, subscription, first message", reference, reference);
    print("StartCdxMoroClient to the first client-state handler", medianOf(starts), reference);
    print("StopCdxMoroClient", medianOf(stops), reference);
}

} // namespace

int main() {
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO); // the framework's diagnostics
    try {
        run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "start and stop bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
