#include "Documents.h"

#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace cdxtools {

std::string compact(const oru::Json::Value& document) {
    oru::Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return oru::Json::writeString(builder, document);
}

oru::Json::Value parseDocument(const std::string& text, const std::string& source) {
    oru::Json::Value document;
    std::string errors;
    const std::unique_ptr<oru::Json::CharReader> reader(oru::Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &document, &errors))
        throw std::runtime_error(source + " is no JSON document: " + errors);
    return document;
}

oru::Json::Value readDocument(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    if (!(text << file.rdbuf()))
        throw std::runtime_error("cannot read " + path);
    return parseDocument(text.str(), path);
}

} // namespace cdxtools
