#include <support/VtableLayout.h>
#include <xal/XObject.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

std::shared_ptr<xalutil::JsonObject> parsed(const std::string& text) {
    return xalutil::JsonFactory::createJsonParser()->parse(text).asObject();
}

/// A resource's descriptor as a service would have it, which puts its filter together only when asked.
class LampDescriptor : public xal::XObjectDescriptor {
public:
    LampDescriptor() : XObjectDescriptor("House", "lamps") {}

    void setColour(const std::string& colour) { m_colour = colour; }
    const xal::XalFilter& getFilter() {
        filter().add("colour", m_colour);
        return XObjectDescriptor::getFilter();
    }

private:
    std::string m_colour;
};

class Lamp : public xal::XObject<LampDescriptor> {
public:
    using XObject::descriptor;
    using XObject::json;
    using XObject::XObject;
};

TEST(AnObject, HasNothingWhenItIsMadeOfNothing) {
    const Lamp lamp{std::shared_ptr<xalutil::JsonObject>()};
    EXPECT_FALSE(lamp.getId().isValid());
    EXPECT_EQ(lamp.json(), nullptr);
}

TEST(AnObject, ReadsItsIdentityAndKeepsTheObject) {
    const auto json = parsed(R"({"uri":"u","name":"n","id":"i"})");
    const Lamp lamp(json);
    EXPECT_EQ(lamp.getId().getValue(), "i");
    EXPECT_EQ(lamp.getName().getValue(), "n");
    EXPECT_EQ(lamp.getUri().getValue(), "u");
    EXPECT_EQ(lamp.json(), json);
}

TEST(AnObject, ThrowsOnAnIdentityThatIsNoStringWhetherMadeOrFilled) {
    EXPECT_THROW(Lamp(parsed(R"({"id":7})")), std::exception);
    Lamp lamp;
    EXPECT_THROW(lamp.fillFromJson(parsed(R"({"name":null})")), std::exception);
}

TEST(AnObject, ReadsIdBeforeNameBeforeUri) {
    Lamp lamp;
    EXPECT_THROW(lamp.fillFromJson(parsed(R"({"uri":"u","name":7,"id":"i"})")), std::exception);
    EXPECT_EQ(lamp.getId().getValue(), "i");
    EXPECT_FALSE(lamp.getUri().isValid());
}

TEST(AnObject, KeepsTheObjectItWasLastFilledFrom) {
    Lamp lamp(parsed(R"({"id":"i"})"));
    const auto second = parsed(R"({"name":"n"})");
    lamp.fillFromJson(second);
    lamp.fillFromJson(nullptr);
    EXPECT_EQ(lamp.json(), second);
    EXPECT_EQ(lamp.getId().getValue(), "i");
}

TEST(AnObject, IsParsedFromText) {
    Lamp lamp;
    lamp.parseJson(R"({"id":"i"})");
    EXPECT_EQ(lamp.getId().getValue(), "i");
    EXPECT_THROW(lamp.parseJson("[]"), std::exception);
    EXPECT_THROW(lamp.parseJson("{"), std::exception);
    EXPECT_EQ(lamp.getId().getValue(), "i");
}

TEST(AnObject, HoldsACopyOfTheDescriptorItIsMadeOf) {
    LampDescriptor descriptor;
    descriptor.setId("i");
    const Lamp lamp(descriptor);
    descriptor.setId("j");
    EXPECT_EQ(lamp.getId().getValue(), "i");
    EXPECT_EQ(lamp.json(), nullptr);
}

TEST(AnObject, HandsOutADescriptorWhoseFilterIsComplete) {
    Lamp lamp;
    lamp.descriptor().setColour("red");
    const LampDescriptor descriptor = static_cast<const Lamp&>(lamp).getDescriptor();
    const xal::XObjectDescriptor& base = descriptor;
    EXPECT_THAT(base.getFilter().getPairs(), testing::ElementsAre(testing::Pair("colour", "red")));
}

TEST(AnObject, CopiesWithTheUrisLastPartAsId) {
    const Lamp lamp(parsed(R"({"id":"old","name":"n"})"));
    const std::pair<std::string, std::string> cases[] = {{"/house/lamps/7", "7"}, {"7", "7"}, {"a\\b", "b"},
                                                         {"a\\b/c", "c"},         {"/", ""},  {"", ""}};
    for (const auto& [uri, id] : cases) {
        const auto copy = lamp.copyWithIdFromUri(uri);
        EXPECT_EQ(copy->getId().getValue(), id) << uri;
        EXPECT_EQ(copy->getUri().getValue(), uri);
        EXPECT_EQ(copy->getName().getValue(), "n");
    }
}

TEST(AnObject, HasItsVirtualOperationsInTheirSlots) {
    const std::string object = "xal::XObject<(anonymous namespace)::LampDescriptor>::";
    const std::string lamp = "(anonymous namespace)::Lamp";
    EXPECT_EQ(cdxtest::differenceFrom(
                  {object + "parseJson(std::string const&)", lamp + "::~Lamp()", lamp + "::~Lamp() [deleting]",
                   object + "getId() const", object + "getUri() const", object + "getName() const",
                   object + "fillFromJson(std::shared_ptr<xalutil::JsonObject>)", object + "getDescriptor() const",
                   object + "copyWithIdFromUri(std::string const&) const"},
                  cdxtest::vtableOf(lamp)),
              "");
}

} // namespace
