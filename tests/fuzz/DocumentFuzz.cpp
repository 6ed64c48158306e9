// A body that a client posts to the service. What is held: nothing is thrown, what is refused has its reason, and every
// text in what was read is read again as the service writes it.
#include "Hold.h"
#include "StrictJson.h"

#include <boost/json/value.hpp>

#include <string>

namespace {

using cdxfuzz::hold;
namespace json = boost::json;

void writeAndReadAgain(std::string_view text) {
    std::string written;
    cdxservice::writeJsonString(written, text);
    std::string wrong;
    const auto again = cdxservice::readStrictJson(written, {}, wrong);
    hold(again && again->is_string() && std::string_view(again->get_string()) == text,
         "a text is read as it was written");
}

void walk(const json::value& value) {
    if (const json::string* text = value.if_string()) {
        writeAndReadAgain(*text);
    } else if (const json::array* array = value.if_array()) {
        for (const json::value& entry : *array)
            walk(entry);
    } else if (const json::object* object = value.if_object()) {
        for (const auto& member : *object) {
            writeAndReadAgain(member.key());
            walk(member.value());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    std::string wrong;
    const auto value = cdxservice::readStrictJson(text, {}, wrong);
    hold(value || !wrong.empty(), "what is refused has its reason");
    if (value)
        walk(*value);
    return 0;
}
