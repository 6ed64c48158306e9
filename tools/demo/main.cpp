#include "Application.h"
#include "Documents.h"
#include "Exchanges.h"
#include "Timeline.h"
#include "Vehicle.h"

#include <cdxservice/Server.h>
#include <cdxservice/Store.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

using namespace cdxtools;

const std::vector<std::string> clients = {"navigation", "charging"};
const std::string serviceGone = "application is told that the service is gone";

std::vector<std::string> forEachClient(const std::vector<std::string>& before, const std::vector<std::string>& after) {
    std::vector<std::string> names;
    for (const std::string& client : clients) {
        for (std::size_t i = 0; i < before.size(); ++i)
            names.push_back(before[i] + client + after[i]);
    }
    return names;
}

std::vector<std::string> of(const std::string& before, const std::string& after) {
    return forEachClient({before}, {after});
}

} // namespace
