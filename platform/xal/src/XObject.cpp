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

} // namespace detail
} // namespace xal
