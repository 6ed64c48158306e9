// What a descriptor does beside its single fields: identity, order, what setting and writing out refuse.
#include "ElementTables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace cdxtest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::out_of_range& error) {
        return error.what();
    }
    return "nothing thrown";
}

TEST(ADescriptor, KnowsItsServiceAndResource) {
    EXPECT_EQ(Service::CdxDataDescriptor().getServiceName(), "CarDataExchange");
    EXPECT_EQ(Service::CdxDataDescriptor().getResourceName(), "cdxData");
    EXPECT_EQ(Service::CdxClientStateDescriptor().getResourceName(), "cdxClientStates");
    EXPECT_EQ(Service::CdxConfigDescriptor().getResourceName(), "cdxConfig");
    EXPECT_EQ(Service::CdxTriggerDescriptor().getResourceName(), "cdxTrigger");
    EXPECT_EQ(Service::CdxMasterControlDescriptor().getServiceName(), "CarDataExchange");
    EXPECT_EQ(Service::CdxMasterControlDescriptor().getResourceName(), "cdxMasterControls");
}

TEST(ADescriptor, IsWrittenOutEmptyWhenItIsFresh) {
    const Service::CdxTriggerDescriptor descriptor;
    EXPECT_EQ(descriptor.getAsJson()->toString(), "{}");
    EXPECT_EQ(descriptor.getAsXALBody()->toString(), "{}");
    EXPECT_THAT(descriptor.getFilter().getPairs(), IsEmpty());
}

TEST(ADescriptor, IsWrittenOutWithTheIdentityBeforeItsFields) {
    Service::CdxConfigDescriptor descriptor;
    descriptor.setRecordId("r");
    descriptor.setUri("/u");
    descriptor.setName("n");
    descriptor.setId("i");
    EXPECT_EQ(descriptor.getAsJson()->toString(), R"({"id":"i","name":"n","uri":"/u","recordId":"r"})");
    EXPECT_EQ(descriptor.getAsXALBody()->toString(), R"({"name":"n","recordId":"r"})");
}

TEST(ADescriptor, WritesAModeAndATimeInFieldOrderWhicheverWasSetFirst) {
    Service::CdxDataDescriptor descriptor;
    descriptor.setTimeToLive(30);
    descriptor.setDeliveryMode(Service::CDXDATA_DELIVERYMODE_atMostOnce);
    EXPECT_EQ(descriptor.getAsJson()->toString(), R"({"deliveryMode":"atMostOnce","timeToLive":30})");
    EXPECT_THAT(descriptor.getFilter().getPairs(),
                ElementsAre(Pair("timeToLive", "30"), Pair("deliveryMode", "atMostOnce")));
}

TEST(ADescriptor, KeepsAnArrayWholeButFiltersByItsFirstString) {
    Service::CdxMasterControlDescriptor descriptor;
    descriptor.setPermittedDataType({"one", "two"});
    EXPECT_THAT(descriptor.getPermittedDataType().getValue(), ElementsAre("one", "two"));
    EXPECT_EQ(descriptor.getAsJson()->toString(), R"({"permittedDataType":["one","two"]})");
    EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(Pair("permittedDataType", "one")));
}

TEST(ADescriptor, StoresAnEmptyArrayAndAddsNothingToTheFilter) {
    Service::CdxDataDescriptor descriptor;
    descriptor.setCdxClientDataReport({});
    ASSERT_TRUE(descriptor.getCdxClientDataReport().isValid());
    EXPECT_THAT(descriptor.getCdxClientDataReport().getValue(), IsEmpty());
    EXPECT_THAT(descriptor.getFilter().getPairs(), IsEmpty());
    EXPECT_EQ(descriptor.getAsJson()->toString(), R"({"cdxClientDataReport":[]})");
}

TEST(ADescriptor, KeepsTheFormerFirstStringInTheFilterWhenAnArrayBecomesEmpty) {
    Service::CdxDataDescriptor descriptor;
    descriptor.setCdxClientDataReport({"former"});
    descriptor.setCdxClientDataReport({});
    EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(Pair("cdxClientDataReport", "former")));
}

TEST(ADescriptor, ReplacesAFieldsPairInItsPlaceWhenTheFieldIsSetAgain) {
    Service::CdxConfigDescriptor descriptor;
    descriptor.setRecordId("first");
    descriptor.setExpiryTime(1);
    descriptor.setRecordId("second");
    EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(Pair("recordId", "second"), Pair("expiryTime", "1")));
}

TEST(ADescriptor, LeavesTheIdentityOutOfTheFilter) {
    Service::CdxConfigDescriptor descriptor;
    descriptor.setId("i");
    descriptor.setName("n");
    descriptor.setUri("u");
    EXPECT_THAT(descriptor.getFilter().getPairs(), IsEmpty());
}

TEST(ADescriptor, FiltersFlagsAsTrueAndFalseAndNumbersInDecimal) {
    Service::CdxDataDescriptor descriptor;
    descriptor.setIsMixinOfVinRequested(true);
    descriptor.setIsMixinOfUserIdRequested(false);
    descriptor.setTimestamp(-9223372036854775807);
    EXPECT_THAT(descriptor.getFilter().getPairs(),
                ElementsAre(Pair("isMixinOfVinRequested", "true"), Pair("isMixinOfUserIdRequested", "false"),
                            Pair("timestamp", "-9223372036854775807")));
}

TEST(ADescriptor, MayBeSetToItsOwnStoredValue) {
    Service::CdxConfigDescriptor descriptor;
    const std::string body(100, 'x');
    descriptor.setRecordBody(body);
    descriptor.setRecordBody(descriptor.getRecordBody().getValue());
    EXPECT_EQ(descriptor.getRecordBody().getValue(), body);
    EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(Pair("recordBody", body)));
}

TEST(ADescriptor, MayBeSetToWhatItsFilterHolds) {
    Service::CdxConfigDescriptor descriptor;
    descriptor.setRecordBody(std::string(100, 'x'));
    descriptor.setRecordId(descriptor.getFilter().getPairs().front().second);
    EXPECT_EQ(descriptor.getRecordId().getValue(), std::string(100, 'x'));
}

TEST(ADescriptor, StoresAnEnumValueOutsideItsTableBeforeItThrows) {
    Service::CdxDataDescriptor descriptor;
    descriptor.setDeliveryMode(Service::CDXDATA_DELIVERYMODE_atMostOnce);
    EXPECT_EQ(messageOf([&] { descriptor.setDeliveryMode(static_cast<Service::CDXDATA_DELIVERYMODE>(2)); }), "map::at");
    EXPECT_EQ(std::int32_t{descriptor.getDeliveryMode().getValue()}, 2);
    EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(Pair("deliveryMode", "atMostOnce")));
}

TEST(ADescriptor, RefusesToWriteOutAnEnumValueOutsideItsTable) {
    Service::CdxMasterControlDescriptor descriptor;
    EXPECT_THROW(descriptor.setDataDeliveryResult(static_cast<Service::CDXMASTERCONTROL_DATADELIVERYRESULT>(8)),
                 std::out_of_range);
    EXPECT_EQ(messageOf([&] { descriptor.getAsJson(); }), "map::at");
    EXPECT_EQ(messageOf([&] { descriptor.getAsXALBody(); }), "map::at");
}

TEST(ADescriptor, ThrowsWhenAnAbsentFieldsValueIsRead) {
    const Service::CdxConfigDescriptor descriptor;
    try {
        descriptor.getRecordId().getValue();
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "getValue called on uninitialized Optional");
    }
}

TEST(ADescriptor, MakesANewObjectEachTimeItIsWrittenOut) {
    Service::CdxConfigDescriptor descriptor;
    descriptor.setRecordId("r");
    descriptor.getAsJson()->set("recordId", "changed");
    EXPECT_EQ(descriptor.getAsJson()->toString(), R"({"recordId":"r"})");
}

TEST(ADescriptor, IsIndependentOfItsCopy) {
    Service::CdxConfigDescriptor original;
    original.setRecordId("r");
    Service::CdxConfigDescriptor copy(original);
    copy.setRecordId("s");
    copy.setName("n");
    EXPECT_EQ(original.getAsJson()->toString(), R"({"recordId":"r"})");
    EXPECT_THAT(original.getFilter().getPairs(), ElementsAre(Pair("recordId", "r")));
}

} // namespace
