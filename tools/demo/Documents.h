#ifndef CDXTOOLS_DEMO_DOCUMENTS_H
#define CDXTOOLS_DEMO_DOCUMENTS_H

#include <oru/Json.h>

#include <string>

namespace cdxtools {

std::string compact(const oru::Json::Value& document);
/// Throws std::runtime_error with the place when `text` is no JSON; `source` says in the message where it came from.
oru::Json::Value parseDocument(const std::string& text, const std::string& source);
/// Throws std::runtime_error when the file cannot be read or is no JSON.
oru::Json::Value readDocument(const std::string& path);

} // namespace cdxtools

#endif
