#include <xal/XObjectDescriptor.h>

namespace xal {

XObjectDescriptor::XObjectDescriptor(const std::string& serviceName, const std::string& resourceName)
    : m_address(std::make_shared<const std::pair<std::string, std::string>>(serviceName, resourceName)) {}

XObjectDescriptor::~XObjectDescriptor() = default;

xalutil::Optional<std::string> XObjectDescriptor::getId() const {
    return m_id;
}

xalutil::Optional<std::string> XObjectDescriptor::getName() const {
    return m_name;
}

xalutil::Optional<std::string> XObjectDescriptor::getUri() const {
    return m_uri;
}

void XObjectDescriptor::setId(const std::string& id) {
    m_id.setValue(id);
}
void XObjectDescriptor::setId(std::string&& id) {
    m_id.setValue(std::move(id));
}

void XObjectDescriptor::setName(const std::string& name) {
    m_name.setValue(name);
}
void XObjectDescriptor::setName(std::string&& name) {
    m_name.setValue(std::move(name));
}

void XObjectDescriptor::setUri(const std::string& uri) {
    m_uri.setValue(uri);
}
void XObjectDescriptor::setUri(std::string&& uri) {
    m_uri.setValue(std::move(uri));
}

std::shared_ptr<xalutil::JsonObject> XObjectDescriptor::getAsJson() const {
    auto json = xalutil::JsonFactory::createJsonObject();
    if (m_id.isValid())
        json->set("id", m_id.getValue());
    if (m_name.isValid())
        json->set("name", m_name.getValue());
    if (m_uri.isValid())
        json->set("uri", m_uri.getValue());
    return json;
}

std::shared_ptr<xalutil::JsonObject> XObjectDescriptor::getAsXALBody() const {
    auto json = xalutil::JsonFactory::createJsonObject();
    if (m_name.isValid())
        json->set("name", m_name.getValue());
    return json;
}

const std::string& XObjectDescriptor::getServiceName() const {
    return m_address->first;
}

const std::string& XObjectDescriptor::getResourceName() const {
    return m_address->second;
}

const XalFilter& XObjectDescriptor::getFilter() const {
    return m_filter;
}

const QueryOptions& XObjectDescriptor::getQueryOptions() const {
    return m_queryOptions;
}

XalFilter& XObjectDescriptor::filter() {
    return m_filter;
}

void XObjectDescriptor::setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level) {
    m_queryOptions.setFields(fields);
    m_queryOptions.setExpandLevel(level);
}

void XObjectDescriptor::setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                                        const std::vector<std::string>& expandFields,
                                        const QueryOptions::SortBy& sortBy) {
    setQueryOptions(fields, level);
    m_queryOptions.setExpandFields(expandFields);
    m_queryOptions.setSortBy(sortBy);
}

void XObjectDescriptor::setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                                        const std::vector<std::string>& expandFields,
                                        const QueryOptions::SortBy& sortBy, long limit, long offset) {
    setQueryOptionsLimit(fields, level, expandFields, sortBy, limit);
    m_queryOptions.setOffset(std::to_string(offset));
}

void XObjectDescriptor::setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                                        const std::vector<std::string>& expandFields,
                                        const QueryOptions::SortBy& sortBy, long limit, std::string& offset) {
    setQueryOptionsLimit(fields, level, expandFields, sortBy, limit);
    m_queryOptions.setOffset(offset);
}

void XObjectDescriptor::setQueryOptionsLimit(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                                             const std::vector<std::string>& expandFields,
                                             const QueryOptions::SortBy& sortBy, long limit) {
    setQueryOptions(fields, level, expandFields, sortBy);
    m_queryOptions.setLimit(std::to_string(limit));
}

void XObjectDescriptor::setQueryOptionsOffset(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                                              const std::vector<std::string>& expandFields,
                                              const QueryOptions::SortBy& sortBy, long offset) {
    setQueryOptions(fields, level, expandFields, sortBy);
    m_queryOptions.setOffset(std::to_string(offset));
}

void XObjectDescriptor::setQueryOptionsOffset(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                                              const std::vector<std::string>& expandFields,
                                              const QueryOptions::SortBy& sortBy, std::string& offset) {
    setQueryOptions(fields, level, expandFields, sortBy);
    m_queryOptions.setOffset(offset);
}

} // namespace xal
