#ifndef CDXTESTS_LIBRARY_DOCUMENTS_H
#define CDXTESTS_LIBRARY_DOCUMENTS_H

#include <oru/Json.h>

#include <string>

namespace cdxtest {

/// A document from its text.
oru::Json::Value documentOf(const std::string& json);
/// Compact text of a document, keys in byte order.
std::string textOf(const oru::Json::Value& document);

} // namespace cdxtest

#endif
