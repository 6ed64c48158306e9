// A filled element's filter is put together late; nobody may be able to tell it from one that grew with each field.
#include "ElementTables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace cdxtest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// An element whose own descriptor can be reached, as a class derived from it could.
class OpenData : public Service::CdxData {
public:
    using Service::CdxData::CdxData;
    OpenData() : CdxData(nullptr) {}

    Service::CdxDataDescriptor& own() { return descriptor(); }
    const std::vector<std::pair<std::string, std::string>> pairs() { return own().getFilter().getPairs(); }
};

TEST(AFilledElementsFilter, HoldsItsFieldsInFieldOrder) {
    OpenData element;
    element.parseJson(R"({"version":"v","authenticode":"a","timezone":60})");
    EXPECT_THAT(element.pairs(), ElementsAre(Pair("authenticode", "a"), Pair("timezone", "60"), Pair("version", "v")));
}

TEST(AFilledElementsFilter, IsCompleteForThoseWhoKnowOnlyTheBaseOfAHandedOutDescriptor) {
    const auto descriptor = elementFrom<Service::CdxData>(R"({"version":"v"})").getDescriptor();
    const xal::XObjectDescriptor& base = descriptor;
    EXPECT_THAT(base.getFilter().getPairs(), ElementsAre(Pair("version", "v")));
}

TEST(AFilledElementsFilter, KeepsTheOrderOfSuccessiveFills) {
    OpenData element;
    element.parseJson(R"({"timezone":1,"version":"v"})");
    element.parseJson(R"({"authenticode":"a","timezone":2})");
    EXPECT_THAT(element.pairs(), ElementsAre(Pair("timezone", "2"), Pair("version", "v"), Pair("authenticode", "a")));
}

TEST(AFilledElementsFilter, KeepsTheFormerFirstStringWhenAnArrayIsRefilledEmpty) {
    OpenData element;
    element.parseJson(R"({"cdxClientDataReport":["former","x"]})");
    element.parseJson(R"({"cdxClientDataReport":[]})");
    EXPECT_THAT(element.pairs(), ElementsAre(Pair("cdxClientDataReport", "former")));
    element.parseJson(R"({"cdxClientDataReport":["next"]})");
    EXPECT_THAT(element.pairs(), ElementsAre(Pair("cdxClientDataReport", "next")));
}

TEST(AFilledElementsFilter, LacksAnArrayThatWasFilledEmpty) {
    OpenData element;
    element.parseJson(R"({"cdxClientDataReport":[7]})");
    EXPECT_THAT(element.pairs(), IsEmpty());
}

TEST(AFilledElementsFilter, PutsWhatIsSetAfterwardsBehindWhatWasFilled) {
    OpenData element;
    element.parseJson(R"({"version":"v"})");
    element.own().setAuthenticode("a");
    EXPECT_THAT(element.pairs(), ElementsAre(Pair("version", "v"), Pair("authenticode", "a")));
}

TEST(AFilledElementsFilter, ReplacesWhatWasSetBefore) {
    OpenData element;
    element.own().setVersion("set");
    element.own().setAuthenticode("set");
    element.parseJson(R"({"authenticode":"filled","eventId":"e"})");
    EXPECT_THAT(element.pairs(),
                ElementsAre(Pair("version", "set"), Pair("authenticode", "filled"), Pair("eventId", "e")));
}

TEST(AFilledElementsFilter, KeepsTheFilledLiteralWhenAnEnumIsSetOutsideItsTable) {
    OpenData element;
    element.parseJson(R"({"deliveryMode":"atLeastOnce"})");
    EXPECT_THROW(element.own().setDeliveryMode(static_cast<Service::CDXDATA_DELIVERYMODE>(9)), std::out_of_range);
    EXPECT_THAT(element.pairs(), ElementsAre(Pair("deliveryMode", "atLeastOnce")));
}

TEST(AFilledElementsFilter, IsCopiedWhetherItWasAskedForOrNot) {
    OpenData element;
    element.parseJson(R"({"version":"v"})");
    OpenData copy(element);
    EXPECT_THAT(copy.pairs(), ElementsAre(Pair("version", "v")));
    copy.own().setVersion("w");
    EXPECT_THAT(element.pairs(), ElementsAre(Pair("version", "v")));

    Service::CdxDataDescriptor assigned;
    assigned.setVersion("before");
    assigned = OpenData(element).own();
    EXPECT_THAT(assigned.getFilter().getPairs(), ElementsAre(Pair("version", "v")));
}

} // namespace
