#include "HttpRequests.h"

namespace xal {
namespace {

std::string encodeList(const std::vector<std::string>& names) {
    std::string list;
    for (const auto& name : names)
        list += (list.empty() ? "" : ",") + percentEncode(name);
    return list;
}

std::string encodeSort(const QueryOptions::SortBy& sortBy) {
    std::string list;
    for (const auto& [direction, name] : sortBy)
        list += std::string(list.empty() ? "" : ",") + (direction == QueryOptions::DESCENDING ? "-" : "") +
                percentEncode(name);
    return list;
}

/// The expand level and the expand fields are not sent: a service shows its elements whole.
std::string query(const Request& request) {
    std::string text;
    const auto add = [&text](const std::string& key, const std::string& value) {
        text += (text.empty() ? "?" : "&") + key + "=" + value;
    };
    const QueryOptions& options = request.options;
    if (!options.getFields().empty())
        add("fields", encodeList(options.getFields()));
    if (!options.getSortBy().empty())
        add("sort", encodeSort(options.getSortBy()));
    if (options.getLimit().isValid())
        add("limit", percentEncode(options.getLimit().getValue()));
    if (options.getOffset().isValid())
        add("offset", percentEncode(options.getOffset().getValue()));
    for (const auto& [key, value] : request.filter.getPairs())
        add(percentEncode(key), percentEncode(value));
    return text;
}

void setBody(xalutil::HttpRequest& http, const Request& request, const char* type) {
    http.body = request.body ? request.body->toString() : "{}";
    http.headers.emplace_back("Content-Type", type);
}

} // namespace

std::string servicePath(const Uri& base, const ServiceAddress& address) {
    return joinPath(joinPath(base.path, address.basePath), percentEncode(address.service));
}

xalutil::HttpRequest makeHttpRequest(const Uri& base, const ServiceAddress& address, const Request& request) {
    xalutil::HttpRequest http;
    const std::string resource = joinPath(servicePath(base, address), percentEncode(request.resourceName));
    http.headers.emplace_back("Accept", "application/json");
    switch (request.kind) {
    case Request::CREATE:
        http.method = "POST";
        http.target = resource + address.separator;
        setBody(http, request, "application/json");
        break;
    case Request::UPDATE:
        http.method = "PATCH";
        http.target = joinPath(resource, request.id);
        setBody(http, request, "application/merge-patch+json");
        break;
    case Request::REMOVE:
        http.method = "DELETE";
        http.target = joinPath(resource, request.id);
        break;
    case Request::READ:
        http.target = resource + address.separator + query(request);
        break;
    }
    return http;
}

} // namespace xal
