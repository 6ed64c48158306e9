#ifndef XAL_XOBJECTDESCRIPTOR_H
#define XAL_XOBJECTDESCRIPTOR_H

#include <xal/QueryOptions.h>
#include <xalutil/Json.h>
#include <xalutil/Optional.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace xal {

/// What a program says of an element that it wants to create, change, delete or find: the base of every resource's
/// descriptor, with the identity that all elements have, a filter and query options.
///
/// A plain value, owned by one thread at a time. The order of the virtual operations is part of the interface.
class XObjectDescriptor {
public:
    XObjectDescriptor(const std::string& serviceName, const std::string& resourceName);
    XObjectDescriptor(const XObjectDescriptor&) = default;
    XObjectDescriptor(XObjectDescriptor&&) = default;
    XObjectDescriptor& operator=(const XObjectDescriptor&) = default;
    XObjectDescriptor& operator=(XObjectDescriptor&&) = default;
    virtual ~XObjectDescriptor();
    virtual xalutil::Optional<std::string> getId() const;
    /// A new object with those of id, name and uri that are set.
    virtual std::shared_ptr<xalutil::JsonObject> getAsJson() const;
    /// A new object with what a request's body holds: the name if set. The id stands in the request's address.
    virtual std::shared_ptr<xalutil::JsonObject> getAsXALBody() const;

    xalutil::Optional<std::string> getName() const;
    xalutil::Optional<std::string> getUri() const;
    void setId(const std::string& id);
    void setId(std::string&& id);
    void setName(const std::string& name);
    void setName(std::string&& name);
    void setUri(const std::string& uri);
    void setUri(std::string&& uri);

    const std::string& getServiceName() const;
    const std::string& getResourceName() const;

    const XalFilter& getFilter() const;
    const QueryOptions& getQueryOptions() const;

    /// Each call replaces the options that it names and leaves the others as they are.
    void setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level);
    void setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                         const std::vector<std::string>& expandFields, const QueryOptions::SortBy& sortBy);
    void setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                         const std::vector<std::string>& expandFields, const QueryOptions::SortBy& sortBy, long limit,
                         long offset);
    void setQueryOptions(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                         const std::vector<std::string>& expandFields, const QueryOptions::SortBy& sortBy, long limit,
                         std::string& offset);
    void setQueryOptionsLimit(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                              const std::vector<std::string>& expandFields, const QueryOptions::SortBy& sortBy,
                              long limit);
    void setQueryOptionsOffset(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                               const std::vector<std::string>& expandFields, const QueryOptions::SortBy& sortBy,
                               long offset);
    void setQueryOptionsOffset(const std::vector<std::string>& fields, QueryOptions::EXPAND_LEVEL level,
                               const std::vector<std::string>& expandFields, const QueryOptions::SortBy& sortBy,
                               std::string& offset);

protected:
    /// The elements' own setters add to it; setId, setName and setUri leave it alone.
    XalFilter& filter();

private:
    // Names of the service and the resource are the same for all descriptors of a class: shared, so that a copy of a
    // descriptor copies no text for them.
    std::shared_ptr<const std::pair<std::string, std::string>> m_address;
    xalutil::Optional<std::string> m_id;
    xalutil::Optional<std::string> m_name;
    xalutil::Optional<std::string> m_uri;
    XalFilter m_filter;
    QueryOptions m_queryOptions;
};

} // namespace xal

#endif
