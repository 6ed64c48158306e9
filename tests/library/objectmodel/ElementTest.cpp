// What an element does beside its fields: identity, refilling, texts, copies.
#include "ElementTables.h"
#include "WarningsRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace {

using namespace cdxtest;
using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<xalutil::JsonObject> parsed(const std::string& text) {
    return xalutil::JsonFactory::createJsonParser()->parse(text).asObject();
}

template <class Element>
class AnElement : public testing::Test {
protected:
    WarningsRecorder m_warnings;
};
TYPED_TEST_SUITE(AnElement, Elements, ElementName);

TYPED_TEST(AnElement, BelongsToTheServiceAndItsResource) {
    static_assert(std::is_same_v<decltype(TypeParam::getServiceName()), const std::string&>);
    static_assert(std::is_same_v<decltype(TypeParam::getResourceName()), const std::string&>);
    EXPECT_EQ(TypeParam::getServiceName(), "CarDataExchange");
    EXPECT_EQ(TypeParam::getResourceName(), ElementTable<TypeParam>::resourceName);
    EXPECT_EQ(Service::getServiceName(), "CarDataExchange");
}

TYPED_TEST(AnElement, StandsOnTheFrameworksBases) {
    using Descriptor = typename TypeParam::Desctype;
    static_assert(std::is_base_of_v<xal::IXObject, TypeParam>);
    static_assert(std::is_base_of_v<xal::XObject<Descriptor>, TypeParam>);
    static_assert(std::is_base_of_v<xal::XObjectDescriptor, Descriptor>);
    static_assert(std::is_same_v<decltype(std::declval<const TypeParam&>().getDescriptor()), Descriptor>);
    static_assert(!std::is_convertible_v<std::shared_ptr<xalutil::JsonObject>, TypeParam>, "explicit");
    static_assert(std::is_copy_constructible_v<TypeParam> && std::is_copy_constructible_v<Descriptor>);
    static_assert(std::is_nothrow_move_constructible_v<TypeParam> && std::is_nothrow_move_constructible_v<Descriptor>);
    SUCCEED();
}

TYPED_TEST(AnElement, TakesItsIdentityFromTheObject) {
    const auto element = elementFrom<TypeParam>(R"({"id":"the id","name":"the name","uri":"/the/uri"})");
    EXPECT_EQ(element.getId().getValue(), "the id");
    EXPECT_EQ(element.getName().getValue(), "the name");
    EXPECT_EQ(element.getUri().getValue(), "/the/uri");
    EXPECT_THAT(element.getDescriptor().getFilter().getPairs(), IsEmpty());
}

TYPED_TEST(AnElement, HasNoIdentityWithoutItsKeys) {
    const auto element = elementFrom<TypeParam>("{}");
    EXPECT_FALSE(element.getId().isValid());
    EXPECT_FALSE(element.getName().isValid());
    EXPECT_FALSE(element.getUri().isValid());
}

TYPED_TEST(AnElement, ThrowsWhenItIsMadeOfAnObjectWhoseIdentityIsNoString) {
    for (const std::string key : {"id", "name", "uri"})
        EXPECT_THROW(elementFrom<TypeParam>("{\"" + key + "\":7}"), std::exception) << key;
    EXPECT_THAT(this->m_warnings.lines(), IsEmpty());
}

TYPED_TEST(AnElement, OnlyWarnsWhenItIsFilledFromAnObjectWhoseIdentityIsNoString) {
    for (const std::string key : {"id", "name", "uri"}) {
        TypeParam element(nullptr);
        EXPECT_NO_THROW(element.fillFromJson(parsed("{\"" + key + "\":7,\"elementId\":1}")));
        EXPECT_THAT(this->m_warnings.texts(), ElementsAre("could not fill object from json, exception occured"));
        EXPECT_FALSE(element.getElementId().isValid()) << "the fill ends with the identity";
    }
}

TYPED_TEST(AnElement, KeepsWhatWasReadBeforeABadIdentity) {
    TypeParam element(nullptr);
    element.fillFromJson(parsed(R"({"id":"new","name":7,"uri":"/u"})"));
    EXPECT_EQ(element.getId().getValue(), "new");
    EXPECT_FALSE(element.getName().isValid());
    EXPECT_FALSE(element.getUri().isValid());
}

TYPED_TEST(AnElement, KeepsTheObjectOfAFailedFillForItsRawTexts) {
    auto element = elementFrom<TypeParam>(R"({"elementId":"first"})");
    element.fillFromJson(parsed(R"({"id":7,"elementId":"second"})"));
    EXPECT_EQ(element.getElementIdAsString().getValue(), "second");
}

TYPED_TEST(AnElement, IsNotChangedByAFillFromNothing) {
    auto element = elementFrom<TypeParam>(R"({"id":"i","elementId":"raw"})");
    this->m_warnings.lines();
    element.fillFromJson(nullptr);
    EXPECT_EQ(element.getId().getValue(), "i");
    EXPECT_EQ(element.getElementIdAsString().getValue(), "raw");
    EXPECT_THAT(this->m_warnings.lines(), IsEmpty());
}

TYPED_TEST(AnElement, IsRefilledByWhatTheNewObjectNames) {
    auto element = elementFrom<TypeParam>(R"({"id":"i","name":"n","elementId":1})");
    element.fillFromJson(parsed(R"({"name":"m","elementId":2})"));
    EXPECT_EQ(element.getId().getValue(), "i");
    EXPECT_EQ(element.getName().getValue(), "m");
    EXPECT_EQ(element.getElementId().getValue(), 2);
}

TYPED_TEST(AnElement, KeepsItsValueWhenARefillCannotReadTheField) {
    auto element = elementFrom<TypeParam>(R"({"elementId":1})");
    element.fillFromJson(parsed(R"({"elementId":"two"})"));
    EXPECT_EQ(element.getElementId().getValue(), 1);
}

TYPED_TEST(AnElement, TakesItsRawTextFromTheObjectAndNotFromTheDescriptor) {
    const auto json = parsed(R"({"elementId":"a text"})");
    const TypeParam element(json);
    EXPECT_FALSE(element.getElementId().isValid());
    EXPECT_EQ(element.getElementIdAsString().getValue(), "a text");
    json->set("elementId", "another");
    EXPECT_EQ(element.getElementIdAsString().getValue(), "another") << "the object is kept, not copied";
}

TYPED_TEST(AnElement, ReadsNullAsAValueThatCannotBeRead) {
    const auto element = elementFrom<TypeParam>(R"({"elementId":null})");
    EXPECT_FALSE(element.getElementId().isValid());
    EXPECT_THAT(this->m_warnings.texts(),
                ElementsAre(testing::StartsWith("could not get elementId as int64_t, exception=")));
}

TYPED_TEST(AnElement, IgnoresUnknownKeys) {
    const auto element = elementFrom<TypeParam>(R"({"noSuchKey":[{}],"ElementId":3})");
    EXPECT_EQ(element.getDescriptor().getAsJson()->toString(), "{}");
    EXPECT_THAT(this->m_warnings.lines(), IsEmpty());
}

TYPED_TEST(AnElement, HandsOutACopyOfItsDescriptor) {
    const auto element = elementFrom<TypeParam>(R"({"elementId":1})");
    auto descriptor = element.getDescriptor();
    descriptor.setElementId(2);
    EXPECT_EQ(element.getElementId().getValue(), 1);
}

TYPED_TEST(AnElement, IsFilledFromText) {
    TypeParam element(nullptr);
    static_cast<xal::IXObject&>(element).parseJson(R"({"id":"i","elementId":5})");
    EXPECT_EQ(element.getId().getValue(), "i");
    EXPECT_EQ(element.getElementId().getValue(), 5) << "the element's own fill runs";
}

TYPED_TEST(AnElement, ThrowsOnTextThatIsNoObject) {
    TypeParam element(nullptr);
    for (const char* text : {"", "[]", "7", "{", R"({"elementId":1}x)"})
        EXPECT_THROW(element.parseJson(text), std::exception) << text;
    EXPECT_FALSE(element.getElementId().isValid());
}

TYPED_TEST(AnElement, CopiesWithTheLastPartOfAUriAsItsId) {
    const auto element = elementFrom<TypeParam>(R"({"id":"old","name":"n","elementId":1})");
    const std::pair<std::string, std::string> cases[] = {{"/CarDataExchange/x/abc", "abc"},
                                                         {"a/b/c", "c"},
                                                         {"whole", "whole"},
                                                         {"", ""},
                                                         {"ends/", ""},
                                                         {"a\\b", "b"},
                                                         {"a/b\\c", "c"},
                                                         {"a\\b/c", "c"}};
    for (const auto& [uri, id] : cases) {
        const auto copy = element.copyWithIdFromUri(uri);
        EXPECT_EQ(copy->getId().getValue(), id) << uri;
        EXPECT_EQ(copy->getUri().getValue(), uri);
        EXPECT_EQ(copy->getName().getValue(), "n");
        EXPECT_EQ(copy->getDescriptor().getElementId().getValue(), 1);
    }
    EXPECT_EQ(element.getId().getValue(), "old");
}

TYPED_TEST(AnElement, CopiesWithIdFromUriIntoAHolderOfTheTemplatesType) {
    const auto element = elementFrom<TypeParam>(R"({"elementId":1})");
    const auto copy = element.copyWithIdFromUri("x");
    static_assert(std::is_same_v<decltype(copy), const std::shared_ptr<xal::XObject<typename TypeParam::Desctype>>>);
    EXPECT_EQ(dynamic_cast<const TypeParam*>(copy.get()), nullptr);
    const xal::XObjectDescriptor& descriptor = copy->getDescriptor();
    EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(testing::Pair("elementId", "1")));
}

TYPED_TEST(AnElement, IsCopiedWithItsObjectAndItsValues) {
    const auto original = elementFrom<TypeParam>(R"({"id":"i","elementId":1})");
    TypeParam copy(original);
    EXPECT_EQ(copy.getElementId().getValue(), 1);
    EXPECT_EQ(copy.getId().getValue(), "i");
    EXPECT_EQ(copy.getDescriptor().getFilter().getPairs(), original.getDescriptor().getFilter().getPairs());
    copy.parseJson(R"({"elementId":2})");
    EXPECT_EQ(original.getElementId().getValue(), 1);

    TypeParam assigned(nullptr);
    assigned = original;
    EXPECT_EQ(assigned.getDescriptor().getAsJson()->toString(), original.getDescriptor().getAsJson()->toString());
}

TYPED_TEST(AnElement, IsMovedWithItsValues) {
    auto original = elementFrom<TypeParam>(R"({"id":"i","elementId":1})");
    TypeParam moved(std::move(original));
    EXPECT_EQ(moved.getDescriptor().getAsJson()->toString(), R"({"id":"i","elementId":1})");
    TypeParam assigned(nullptr);
    assigned = std::move(moved);
    EXPECT_EQ(assigned.getDescriptor().getAsJson()->toString(), R"({"id":"i","elementId":1})");
}

TEST(AnElementsEnum, KeepsAnUnknownLiteralOutThatOnlyBeginsLikeAKnownOne) {
    WarningsRecorder warnings;
    const auto element = elementFrom<Service::CdxData>(R"({"deliveryMode":"atMostOnce\u0000"})");
    EXPECT_FALSE(element.getDeliveryMode().isValid());
    EXPECT_THAT(warnings.texts(), ElementsAre("unknown enum value in deliveryMode"));
}

TEST(AnElementsNumber, TakesTheWholeRangeOf64Bits) {
    const auto element =
        elementFrom<Service::CdxConfig>(R"({"expiryTime":-9223372036854775808,"receiveTime":9223372036854775807})");
    EXPECT_EQ(element.getExpiryTime().getValue(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(element.getReceiveTime().getValue(), std::numeric_limits<std::int64_t>::max());
}

TEST(AnElementsNumber, IsLeftOutWhenItDoesNotFitOrHasAFraction) {
    for (const char* number : {"9223372036854775808", "-9223372036854775809", "1.0", "1e2", "1e400"}) {
        const auto element = elementFrom<Service::CdxConfig>(objectOf({{"expiryTime", number}}));
        EXPECT_FALSE(element.getExpiryTime().isValid()) << number;
    }
}

TEST(AnElementsArray, IsEmptyButPresentWhenTheObjectsIsEmpty) {
    const auto element = elementFrom<Service::CdxClientState>(R"({"offeredDataType":[]})");
    ASSERT_TRUE(element.getOfferedDataType().isValid());
    EXPECT_THAT(element.getOfferedDataType().getValue(), IsEmpty());
    EXPECT_THAT(element.getDescriptor().getFilter().getPairs(), IsEmpty());
}

TEST(AnElementsArray, KeepsTheStringThatFollowsANumber) {
    WarningsRecorder warnings;
    const auto element = elementFrom<Service::CdxClientState>(R"({"offeredDataType":[7,"position"]})");
    EXPECT_THAT(element.getOfferedDataType().getValue(), ElementsAre("position"));
    EXPECT_THAT(warnings.texts(),
                ElementsAre(testing::StartsWith("could not get offeredDataType as std::string, exception=")));
}

TEST(AnElementsDeliveryMode, IsFilledAloneFromItsText) {
    const auto element = elementFrom<Service::CdxData>(R"({"deliveryMode":"atLeastOnce"})");
    EXPECT_EQ(std::int32_t{element.getDeliveryMode().getValue()}, 1);
    EXPECT_EQ(element.getDescriptor().getAsJson()->toString(), R"({"deliveryMode":"atLeastOnce"})");
}

TEST(AMasterControl, IsReadOnWhenItsDeliveryResultIsUnknown) {
    WarningsRecorder warnings;
    const auto element = elementFrom<Service::CdxMasterControl>(
        R"({"backendChannelControl":"pauseMasterBusy","dataDeliveryResult":"?","elementId":4,"eventTicket":"t",)"
        R"("permittedDataType":["a"]})");
    EXPECT_EQ(
        element.getDescriptor().getAsJson()->toString(),
        R"({"backendChannelControl":"pauseMasterBusy","elementId":4,"eventTicket":"t","permittedDataType":["a"]})");
    EXPECT_THAT(warnings.texts(), ElementsAre("unknown enum value in dataDeliveryResult"));
}

} // namespace
