#include "HttpText.h"
#include "Router.h"

namespace cdxservice {

namespace {

std::optional<std::vector<std::string>> segments(std::string_view path) {
    if (path.empty() || path.front() != '/') {
        return std::nullopt;
    }
    std::vector<std::string> parts;
    for (;;) {
        path.remove_prefix(1);
        const auto end = std::min(path.find('/'), path.size());
        auto part = percentDecoded(path.substr(0, end));
        if (!part) {
            return std::nullopt;
        }
        parts.push_back(std::move(*part));
        if (end == path.size()) {
            return parts;
        }
        path.remove_prefix(end);
    }
}

Route routeInService(std::vector<std::string>& parts) {
    Route route;
    if (parts.size() == 1) {
        route.kind = Route::Kind::Service;
        return route;
    }
    const auto resource = findResource(parts[1]);
    if (!resource || parts.size() > 3) {
        return route;
    }
    route.resource = *resource;
    if (parts.size() == 2 || parts[2].empty()) {
        route.kind = Route::Kind::List;
    } else if (isElementId(parts[2])) {
        route.kind = Route::Kind::Element;
        route.id = std::move(parts[2]);
    }
    return route;
}

} // namespace

Route findRoute(std::string_view path) {
    auto parts = segments(path);
    Route route;
    if (!parts) {
        return route;
    }
    if (parts->front() == serviceName) {
        return routeInService(*parts);
    }
    if (parts->size() == 2 && parts->front() == "registry" && (*parts)[1] == serviceName) {
        route.kind = Route::Kind::Registry;
    } else if (parts->size() == 1 && parts->front() == "health") {
        route.kind = Route::Kind::Health;
    } else if (parts->size() == 1 && parts->front() == "session") {
        route.kind = Route::Kind::Session;
    }
    return route;
}

} // namespace cdxservice
