#include <xal/XObject.h>

namespace xal {

IXObject::~IXObject() = default;

namespace detail {

std::string lastPartOf(const std::string& uri) {
    const auto separator = uri.find_last_of("/\\");
    return separator == std::string::npos ? uri : uri.substr(separator + 1);
}

std::shared_ptr<xalutil::JsonObject> parseObject(const std::string& text) {
    return xalutil::JsonFactory::createJsonParser()->parse(text).asObject();
}

void readIdentity(const xalutil::JsonObject& json, XObjectDescriptor& descriptor) {
    static const std::string& id = *new std::string("id");
    static const std::string& name = *new std::string("name");
    static const std::string& uri = *new std::string("uri");
    if (json.has(id))
        descriptor.setId(json.getString(id));
    if (json.has(name))
        descriptor.setName(json.getString(name));
    if (json.has(uri))
        descriptor.setUri(json.getString(uri));
}

} // namespace detail
} // namespace xal
