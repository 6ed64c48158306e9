// The object model's names: the tables of its enums, their texts, and the query options, which turn fields into keys.
#include "CardataexchangeNames.h"

namespace xalobjects_GX2 {

namespace {

template <class Enum>
std::map<const char*, Enum, cmp_str> inverse(const std::map<Enum, const char*>& literals) {
    std::map<const char*, Enum, cmp_str> values;
    for (const auto& [value, literal] : literals)
        values.emplace(literal, value);
    return values;
}

template <class Enum>
std::string textOf(Enum value) {
    const auto& literals = detail::literalsOf(value);
    const auto found = literals.find(value);
    if (found == literals.end())
        return "unknown value(" + std::to_string(literals.size()) + ")";
    return std::string(found->second) + "(" + std::to_string(std::int32_t{value}) + ")";
}

template <class Enum>
std::vector<std::string> keysOf(const std::vector<Enum>& fields) {
    std::vector<std::string> keys;
    keys.reserve(fields.size());
    for (const Enum field : fields)
        keys.emplace_back(detail::literalsOf(field).at(field));
    return keys;
}

using SortByKeys = std::vector<std::pair<xal::QueryOptions::SORTBY_OPERATOR, std::string>>;

template <class Enum>
SortByKeys keysOf(const std::vector<std::pair<xal::QueryOptions::SORTBY_OPERATOR, Enum>>& sortBy) {
    SortByKeys keys;
    keys.reserve(sortBy.size());
    for (const auto& [direction, field] : sortBy)
        keys.emplace_back(direction, detail::literalsOf(field).at(field));
    return keys;
}

} // namespace

#define CDX_LITERAL_PAIR(Enum, literal) {Enum##_##literal, #literal},
#define CDX_FIELD_PAIR(Enum, Type, key, Name) CDX_LITERAL_PAIR(Enum, key)

#define CDX_DEFINE_TABLES(Enum, Name, ...)                                                                        \
    const std::map<CardataexchangeService::Enum, const char*> CardataexchangeService::map##Name##2String {        \
        __VA_ARGS__};                                                                                             \
    const std::map<const char*, CardataexchangeService::Enum, cmp_str> CardataexchangeService::mapString2##Name = \
        inverse(map##Name##2String);

#define CDX_DEFINE_VALUES(Enum, Name)                                                     \
    CDX_DEFINE_TABLES(Enum, Name, Enum##_LIST(CDX_LITERAL_PAIR, Enum))                    \
    std::string CardataexchangeService::to_string(Enum value) {                           \
        return textOf(value);                                                             \
    }                                                                                     \
    std::string CardataexchangeService::to_string(const xalutil::Optional<Enum>& value) { \
        return value.isValid() ? to_string(value.getValue()) : "optional invalid";        \
    }

#define CDX_DEFINE_FIELDS(Enum, Name) \
    CDX_DEFINE_TABLES(Enum, Name,     \
                      Enum##_LIST(CDX_FIELD_PAIR, CDX_FIELD_PAIR, Enum) CDX_IDENTITY_LIST(CDX_LITERAL_PAIR, Enum))

CDX_ENUMS(CDX_DEFINE_VALUES, CDX_DEFINE_FIELDS)

#define CDX_DEFINE_QUERY_OPTIONS(Element)                                                                              \
    using Element##Descriptor = CardataexchangeService::Element##Descriptor;                                           \
                                                                                                                       \
    void Element##Descriptor::setQueryOptions(const FieldVector& fields, ExpandLevel level) {                          \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level);                                                     \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptions(const FieldVector& fields, ExpandLevel level,                            \
                                              const FieldVector& expandFields, const SortByVector& sortBy) {           \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level, keysOf(expandFields), keysOf(sortBy));               \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptions(const FieldVector& fields, ExpandLevel level,                            \
                                              const FieldVector& expandFields, const SortByVector& sortBy, long limit, \
                                              long offset) {                                                           \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level, keysOf(expandFields), keysOf(sortBy), limit,         \
                                           offset);                                                                    \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptions(const FieldVector& fields, ExpandLevel level,                            \
                                              const FieldVector& expandFields, const SortByVector& sortBy, long limit, \
                                              std::string& offset) {                                                   \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level, keysOf(expandFields), keysOf(sortBy), limit,         \
                                           offset);                                                                    \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptionsLimit(const FieldVector& fields, ExpandLevel level,                       \
                                                   const FieldVector& expandFields, const SortByVector& sortBy,        \
                                                   long limit) {                                                       \
        XObjectDescriptor::setQueryOptionsLimit(keysOf(fields), level, keysOf(expandFields), keysOf(sortBy), limit);   \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptionsOffset(const FieldVector& fields, ExpandLevel level,                      \
                                                    const FieldVector& expandFields, const SortByVector& sortBy,       \
                                                    long offset) {                                                     \
        XObjectDescriptor::setQueryOptionsOffset(keysOf(fields), level, keysOf(expandFields), keysOf(sortBy), offset); \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptionsOffset(const FieldVector& fields, ExpandLevel level,                      \
                                                    const FieldVector& expandFields, const SortByVector& sortBy,       \
                                                    std::string& offset) {                                             \
        XObjectDescriptor::setQueryOptionsOffset(keysOf(fields), level, keysOf(expandFields), keysOf(sortBy), offset); \
    }                                                                                                                  \
    std::vector<std::string> Element##Descriptor::get##Element##VectorAsStringVector(FieldVector fields) {             \
        return keysOf(fields);                                                                                         \
    }                                                                                                                  \
    SortByKeys Element##Descriptor::getSortByFieldsAsStringVector(SortByVector sortBy) {                               \
        return keysOf(sortBy);                                                                                         \
    }

CDX_DEFINE_QUERY_OPTIONS(CdxData)
CDX_DEFINE_QUERY_OPTIONS(CdxClientState)
CDX_DEFINE_QUERY_OPTIONS(CdxConfig)
CDX_DEFINE_QUERY_OPTIONS(CdxTrigger)
CDX_DEFINE_QUERY_OPTIONS(CdxMasterControl)

} // namespace xalobjects_GX2
