#ifndef ORU_JSON_H
#define ORU_JSON_H

#include <json/json.h>

/// The platform's JSON value is JsonCpp's own, under the platform's name: documents go in and out without conversion.
namespace oru {
namespace Json = ::Json;
} // namespace oru

#endif
