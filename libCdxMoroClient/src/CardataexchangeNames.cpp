// The object model's names: the tables of its enums, their texts, and the query options, which turn fields into keys.
#include "CardataexchangeNames.h"

#include <cstring>

namespace xalobjects_GX2 {

bool cmp_str::operator()(const char* left, const char* right) const {
    return std::strcmp(left, right) < 0;
}

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

template <class Enum>
xal::QueryOptions::SortBy keysOf(const std::vector<std::pair<xal::QueryOptions::SORTBY_OPERATOR, Enum>>& sortBy) {
    xal::QueryOptions::SortBy keys;
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

#define CDX_DEFINE_FIELDS(Enum, Name)                                        \
    CDX_DEFINE_TABLES(Enum, Name,                                            \
                      Enum##_LIST(CDX_FIELD_PAIR, CDX_FIELD_PAIR, Enum) /**/ \
                      {Enum##_id, "id"},                                     \
                      {Enum##_name, "name"}, {Enum##_uri, "uri"})

CDX_ENUMS(CDX_DEFINE_VALUES, CDX_DEFINE_FIELDS)

#define CDX_DEFINE_QUERY_OPTIONS(Element, FieldEnum)                                                                   \
    using Element##Descriptor = CardataexchangeService::Element##Descriptor;                                           \
                                                                                                                       \
    void Element##Descriptor::setQueryOptions(const std::vector<FieldEnum>& fields, Options::EXPAND_LEVEL level) {     \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level);                                                     \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptions(const std::vector<FieldEnum>& fields, Options::EXPAND_LEVEL level,       \
                                              const std::vector<FieldEnum>& expandFields,                              \
                                              const std::vector<std::pair<Options::SORTBY_OPERATOR, FieldEnum>>& by) { \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level, keysOf(expandFields), keysOf(by));                   \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptions(                                                                         \
        const std::vector<FieldEnum>& fields, Options::EXPAND_LEVEL level, const std::vector<FieldEnum>& expandFields, \
        const std::vector<std::pair<Options::SORTBY_OPERATOR, FieldEnum>>& by, long limit, long offset) {              \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level, keysOf(expandFields), keysOf(by), limit, offset);    \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptions(                                                                         \
        const std::vector<FieldEnum>& fields, Options::EXPAND_LEVEL level, const std::vector<FieldEnum>& expandFields, \
        const std::vector<std::pair<Options::SORTBY_OPERATOR, FieldEnum>>& by, long limit, std::string& offset) {      \
        XObjectDescriptor::setQueryOptions(keysOf(fields), level, keysOf(expandFields), keysOf(by), limit, offset);    \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptionsLimit(                                                                    \
        const std::vector<FieldEnum>& fields, Options::EXPAND_LEVEL level, const std::vector<FieldEnum>& expandFields, \
        const std::vector<std::pair<Options::SORTBY_OPERATOR, FieldEnum>>& by, long limit) {                           \
        XObjectDescriptor::setQueryOptionsLimit(keysOf(fields), level, keysOf(expandFields), keysOf(by), limit);       \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptionsOffset(                                                                   \
        const std::vector<FieldEnum>& fields, Options::EXPAND_LEVEL level, const std::vector<FieldEnum>& expandFields, \
        const std::vector<std::pair<Options::SORTBY_OPERATOR, FieldEnum>>& by, long offset) {                          \
        XObjectDescriptor::setQueryOptionsOffset(keysOf(fields), level, keysOf(expandFields), keysOf(by), offset);     \
    }                                                                                                                  \
    void Element##Descriptor::setQueryOptionsOffset(                                                                   \
        const std::vector<FieldEnum>& fields, Options::EXPAND_LEVEL level, const std::vector<FieldEnum>& expandFields, \
        const std::vector<std::pair<Options::SORTBY_OPERATOR, FieldEnum>>& by, std::string& offset) {                  \
        XObjectDescriptor::setQueryOptionsOffset(keysOf(fields), level, keysOf(expandFields), keysOf(by), offset);     \
    }                                                                                                                  \
    std::vector<std::string> Element##Descriptor::get##Element##VectorAsStringVector(std::vector<FieldEnum> fields) {  \
        return keysOf(fields);                                                                                         \
    }                                                                                                                  \
    std::vector<std::pair<Options::SORTBY_OPERATOR, std::string>> Element##Descriptor::getSortByFieldsAsStringVector(  \
        std::vector<std::pair<Options::SORTBY_OPERATOR, FieldEnum>> by) {                                              \
        return keysOf(by);                                                                                             \
    }

using Options = xal::QueryOptions;

CDX_DEFINE_QUERY_OPTIONS(CdxData, CDXDATA_FIELDS)
CDX_DEFINE_QUERY_OPTIONS(CdxClientState, CDXCLIENTSTATE_FIELDS)
CDX_DEFINE_QUERY_OPTIONS(CdxConfig, CDXCONFIG_FIELDS)
CDX_DEFINE_QUERY_OPTIONS(CdxTrigger, CDXTRIGGER_FIELDS)
CDX_DEFINE_QUERY_OPTIONS(CdxMasterControl, CDXMASTERCONTROL_FIELDS)

} // namespace xalobjects_GX2
