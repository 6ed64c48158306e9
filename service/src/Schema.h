#ifndef SERVICE_SRC_SCHEMA_H
#define SERVICE_SRC_SCHEMA_H

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace cdxservice {

enum class Kind { Text, Integer, Flag, Literal, TextList };

/// One member of an element: its key, what it holds and, of a literal, which texts there are.
struct Field {
    std::string_view key;
    Kind kind = Kind::Text;
    std::vector<std::string_view> literals = {};
};

/// Every resource's fields begin with these three, in this order.
constexpr std::size_t idField = 0;
constexpr std::size_t nameField = 1;
constexpr std::size_t uriField = 2;

/// One resource: its fields in the order in which they are written out, and what is special about it.
struct ResourceSchema {
    std::string_view name;
    std::vector<Field> fields;
    bool oneOfEachName = false; ///< Non-empty names are unique; a POST of one that exists replaces that element.
    bool settlesData = false;   ///< An "eventTicket" in a PATCH settles data elements.
    bool expires = false;       ///< "timestamp" and "timeToLive" end an element.

    std::optional<std::size_t> find(std::string_view key) const;
};

constexpr std::string_view serviceName = "CarDataExchange";
constexpr std::size_t resourceCount = 5;
using Schema = std::array<ResourceSchema, resourceCount>;

/// The five resources of the service.
const Schema& schema();

/// The position of a resource in schema().
std::optional<std::size_t> findResource(std::string_view name);

/// Where the rules that tie resources together find their fields. All of them exist.
struct WellKnown {
    std::size_t data, dataEventId, dataTimestamp, dataTimeToLive;
    std::size_t masterControls, controlEventTicket, controlDeliveryResult;
};
const WellKnown& wellKnown();

} // namespace cdxservice

#endif
