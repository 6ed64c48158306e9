// A program that ends without stopping anything: argument 1 is the service's base URI, argument 2 how it ends.

#include "TestClient.h"

#include <support/Event.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

int main(int, char** arguments) {
    const std::string how = arguments[2];
    // Older than the framework's exit handler, and so destroyed after it.
    static std::unique_ptr<xaltest::TestClient> destroyed;
    // Never destroyed: nothing of it is stopped by anybody but the framework itself.
    static xaltest::TestClient* kept = nullptr;
    auto made = std::make_unique<xaltest::TestClient>(arguments[1]);
    auto& client = *made;
    if (how == "destroyed")
        destroyed = std::move(made);
    else
        kept = made.release();
    cdxtest::Event isBusy;
    if (how == "busy")
        client.onConnected = [&isBusy](const auto&) {
            isBusy.set();
            std::this_thread::sleep_for(std::chrono::minutes(1));
        };
    client.listen();
    if (how == "busy")
        isBusy.await();
    else if (how == "connecting")
        std::getchar(); // until the test has seen the attempt
    else if (!client.connection())
        return 1;
    static const auto subscription =
        how == "connected" ? client.connection()->subscribeResource<xaltest::Item>(xaltest::ItemDescriptor(),
                                                                                   [](const auto&, const auto&) {})
                           : nullptr;
    if (how == "closing") {
        // A static object that closes, younger than the framework's exit handler.
        static struct Closer {
            xaltest::TestClient* client = nullptr;
            ~Closer() {
                client->close();
                client->registry.reset();
            }
        } closer;
        closer.client = kept;
    }
    std::puts("ending");
    std::fflush(stdout);
    return 3;
}
