#ifndef CDXTESTS_LIBRARY_OBJECTMODEL_ELEMENTTABLES_H
#define CDXTESTS_LIBRARY_OBJECTMODEL_ELEMENTTABLES_H

#include <Cardataexchange.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace cdxtest {

using Service = xalobjects_GX2::CardataexchangeService;

enum class Kind { TEXT, NUMBER, FLAG, ENUM, TEXTS };

/// One field of an element as the tests know it, written down apart from the library's own list. Values are passed as
/// JSON text without blanks, so that one test can go through all fields.
template <class Element>
struct FieldRow {
    using Descriptor = typename Element::Desctype;

    int number;
    std::string key;
    Kind kind;
    std::vector<std::string> literals; ///< of an enum
    std::function<void(Descriptor&, const std::string& json)> set;
    std::function<std::string(const Descriptor&)> valueInDescriptor; ///< "absent" where there is none
    std::function<std::string(const Element&)> valueInElement;
    std::function<xalutil::Optional<std::string>(const Element&)> rawText; ///< empty for enums and arrays

    /// A value that the field takes, and what its pair in the filter holds then.
    std::string sample() const;
    std::string sampleInFilter() const;
    /// JSON of a type that the field does not take.
    std::string wrongSample() const { return kind == Kind::NUMBER ? R"("seven")" : "7"; }
    /// "could not get elementId as int64_t, exception="
    std::string couldNotGet() const;
};

/// What the tests know of an element's class: its name, its resource's name, and its fields.
template <class Element>
struct ElementTable;

template <>
struct ElementTable<Service::CdxData> {
    static constexpr const char* name = "CdxData";
    static constexpr const char* resourceName = "cdxData";
    static const std::vector<FieldRow<Service::CdxData>>& rows();
};
template <>
struct ElementTable<Service::CdxClientState> {
    static constexpr const char* name = "CdxClientState";
    static constexpr const char* resourceName = "cdxClientStates";
    static const std::vector<FieldRow<Service::CdxClientState>>& rows();
};
template <>
struct ElementTable<Service::CdxConfig> {
    static constexpr const char* name = "CdxConfig";
    static constexpr const char* resourceName = "cdxConfig";
    static const std::vector<FieldRow<Service::CdxConfig>>& rows();
};
template <>
struct ElementTable<Service::CdxTrigger> {
    static constexpr const char* name = "CdxTrigger";
    static constexpr const char* resourceName = "cdxTrigger";
    static const std::vector<FieldRow<Service::CdxTrigger>>& rows();
};
template <>
struct ElementTable<Service::CdxMasterControl> {
    static constexpr const char* name = "CdxMasterControl";
    static constexpr const char* resourceName = "cdxMasterControls";
    static const std::vector<FieldRow<Service::CdxMasterControl>>& rows();
};

/// For tests of every element: TYPED_TEST_SUITE(Suite, Elements, ElementName).
using Elements = testing::Types<Service::CdxData, Service::CdxClientState, Service::CdxConfig, Service::CdxTrigger,
                                Service::CdxMasterControl>;
struct ElementName {
    template <class Element>
    static std::string GetName(int) {
        return ElementTable<Element>::name;
    }
};

/// The element that a JSON text of an object makes.
template <class Element>
Element elementFrom(const std::string& text) {
    return Element(xalutil::JsonFactory::createJsonParser()->parse(text).asObject());
}

/// An object with these members, given as pairs of key and JSON text.
std::string objectOf(const std::vector<std::pair<std::string, std::string>>& members);

extern template struct FieldRow<Service::CdxData>;
extern template struct FieldRow<Service::CdxClientState>;
extern template struct FieldRow<Service::CdxConfig>;
extern template struct FieldRow<Service::CdxTrigger>;
extern template struct FieldRow<Service::CdxMasterControl>;

} // namespace cdxtest

#endif
