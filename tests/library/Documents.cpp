#include "Documents.h"

#include <sstream>

namespace cdxtest {

oru::Json::Value documentOf(const std::string& json) {
    oru::Json::Value document;
    std::istringstream(json) >> document;
    return document;
}

std::string textOf(const oru::Json::Value& document) {
    oru::Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return oru::Json::writeString(writer, document);
}

} // namespace cdxtest
