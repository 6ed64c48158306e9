// The query options: fields go to the base as their keys, everything else as it is.
#include "ElementTables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace cdxtest;
using Options = xal::QueryOptions;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

template <class Enum>
Enum field(std::size_t number) {
    return static_cast<Enum>(number);
}

/// Every overload, for one element: all of the element's fields, two to expand, two to sort by.
template <class Element, class Enum>
class QueryOptionsOf {
public:
    using Descriptor = typename Element::Desctype;

    QueryOptionsOf() {
        for (const auto& row : ElementTable<Element>::rows())
            m_keys.push_back(row.key);
        m_keys.insert(m_keys.end(), {"id", "name", "uri"});
        for (std::size_t number = 0; number < m_keys.size(); ++number)
            m_fields.push_back(field<Enum>(number));
    }

    void expectEveryOverload() {
        const std::vector<Enum> expand = {m_fields.back(), m_fields.front()};
        const std::vector<std::pair<Options::SORTBY_OPERATOR, Enum>> sortBy = {{Options::DESCENDING, m_fields[1]},
                                                                               {Options::ASCENDING, m_fields.back()}};
        const auto level = Options::EXPAND_ALL;
        std::string text = "from here";

        Descriptor fieldsOnly;
        fieldsOnly.setQueryOptions(m_fields, Options::EXPAND_ELEMENTS);
        EXPECT_EQ(fieldsOnly.getQueryOptions().getFields(), m_keys);
        EXPECT_EQ(fieldsOnly.getQueryOptions().getExpandLevel(), Options::EXPAND_ELEMENTS);
        EXPECT_THAT(fieldsOnly.getQueryOptions().getExpandFields(), IsEmpty());
        EXPECT_THAT(fieldsOnly.getQueryOptions().getSortBy(), IsEmpty());

        expectOptions([&](Descriptor& d) { d.setQueryOptions(m_fields, level, expand, sortBy); }, "absent", "absent");
        expectOptions([&](Descriptor& d) { d.setQueryOptions(m_fields, level, expand, sortBy, 7L, 9L); }, "7", "9");
        expectOptions([&](Descriptor& d) { d.setQueryOptions(m_fields, level, expand, sortBy, 7L, text); }, "7",
                      "from here");
        expectOptions([&](Descriptor& d) { d.setQueryOptionsLimit(m_fields, level, expand, sortBy, 7L); }, "7",
                      "absent");
        expectOptions([&](Descriptor& d) { d.setQueryOptionsOffset(m_fields, level, expand, sortBy, 9L); }, "absent",
                      "9");
        expectOptions([&](Descriptor& d) { d.setQueryOptionsOffset(m_fields, level, expand, sortBy, text); }, "absent",
                      "from here");
        EXPECT_EQ(text, "from here");
    }

    const std::vector<Enum>& fields() const { return m_fields; }
    const std::vector<std::string>& keys() const { return m_keys; }

private:
    static std::string text(const xalutil::Optional<std::string>& value) {
        return value.isValid() ? value.getValue() : "absent";
    }

    template <class SetOptions>
    void expectOptions(SetOptions setOptions, const std::string& limit, const std::string& offset) {
        Descriptor descriptor;
        setOptions(descriptor);
        const Options& options = descriptor.getQueryOptions();
        EXPECT_EQ(options.getFields(), m_keys);
        EXPECT_EQ(options.getExpandLevel(), Options::EXPAND_ALL);
        EXPECT_THAT(options.getExpandFields(), ElementsAre("uri", m_keys.front()));
        EXPECT_THAT(options.getSortBy(),
                    ElementsAre(Pair(Options::DESCENDING, m_keys[1]), Pair(Options::ASCENDING, "uri")));
        EXPECT_EQ(text(options.getLimit()), limit);
        EXPECT_EQ(text(options.getOffset()), offset);
    }

    std::vector<Enum> m_fields;
    std::vector<std::string> m_keys;
};

TEST(QueryOptions, PassKeysOnInEveryOverloadOfEachElement) {
    QueryOptionsOf<Service::CdxData, Service::CDXDATA_FIELDS>().expectEveryOverload();
    QueryOptionsOf<Service::CdxClientState, Service::CDXCLIENTSTATE_FIELDS>().expectEveryOverload();
    QueryOptionsOf<Service::CdxConfig, Service::CDXCONFIG_FIELDS>().expectEveryOverload();
    QueryOptionsOf<Service::CdxTrigger, Service::CDXTRIGGER_FIELDS>().expectEveryOverload();
    QueryOptionsOf<Service::CdxMasterControl, Service::CDXMASTERCONTROL_FIELDS>().expectEveryOverload();
}

TEST(QueryOptions, TurnFieldsIntoKeysForEachElement) {
    const QueryOptionsOf<Service::CdxData, Service::CDXDATA_FIELDS> data;
    EXPECT_EQ(Service::CdxDataDescriptor::getCdxDataVectorAsStringVector(data.fields()), data.keys());
    const QueryOptionsOf<Service::CdxClientState, Service::CDXCLIENTSTATE_FIELDS> state;
    EXPECT_EQ(Service::CdxClientStateDescriptor::getCdxClientStateVectorAsStringVector(state.fields()), state.keys());
    const QueryOptionsOf<Service::CdxConfig, Service::CDXCONFIG_FIELDS> config;
    EXPECT_EQ(Service::CdxConfigDescriptor::getCdxConfigVectorAsStringVector(config.fields()), config.keys());
    const QueryOptionsOf<Service::CdxTrigger, Service::CDXTRIGGER_FIELDS> trigger;
    EXPECT_EQ(Service::CdxTriggerDescriptor::getCdxTriggerVectorAsStringVector(trigger.fields()), trigger.keys());
    const QueryOptionsOf<Service::CdxMasterControl, Service::CDXMASTERCONTROL_FIELDS> control;
    EXPECT_EQ(Service::CdxMasterControlDescriptor::getCdxMasterControlVectorAsStringVector(control.fields()),
              control.keys());
}

TEST(QueryOptions, TurnSortOrdersIntoKeysWithTheirOperators) {
    EXPECT_THAT(Service::CdxConfigDescriptor::getSortByFieldsAsStringVector(
                    {{Options::ASCENDING, Service::CDXCONFIG_FIELDS_recordId},
                     {Options::DESCENDING, Service::CDXCONFIG_FIELDS_name}}),
                ElementsAre(Pair(Options::ASCENDING, "recordId"), Pair(Options::DESCENDING, "name")));
    EXPECT_THAT(Service::CdxDataDescriptor::getSortByFieldsAsStringVector({}), IsEmpty());
}

TEST(QueryOptions, RefuseAFieldOutsideTheFieldEnum) {
    Service::CdxConfigDescriptor descriptor;
    EXPECT_THROW(descriptor.setQueryOptions({static_cast<Service::CDXCONFIG_FIELDS>(9)}, Options::EXPAND_NONE),
                 std::out_of_range);
    EXPECT_THAT(descriptor.getQueryOptions().getFields(), IsEmpty());
}

TEST(QueryOptions, LeaveWhatACallDoesNotName) {
    Service::CdxConfigDescriptor descriptor;
    descriptor.setQueryOptions({Service::CDXCONFIG_FIELDS_id}, Options::EXPAND_ALL, {}, {}, 5L, 6L);
    descriptor.setQueryOptionsLimit({Service::CDXCONFIG_FIELDS_uri}, Options::EXPAND_NONE, {}, {}, 8L);
    EXPECT_THAT(descriptor.getQueryOptions().getFields(), ElementsAre("uri"));
    EXPECT_EQ(descriptor.getQueryOptions().getLimit().getValue(), "8");
    EXPECT_EQ(descriptor.getQueryOptions().getOffset().getValue(), "6");
}

} // namespace
