#include <support/VtableLayout.h>
#include <xal/XObjectDescriptor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::IsEmpty;

TEST(ADescriptorBase, KnowsItsServiceAndItsResource) {
    const xal::XObjectDescriptor descriptor("A service", "a resource");
    EXPECT_EQ(descriptor.getServiceName(), "A service");
    EXPECT_EQ(descriptor.getResourceName(), "a resource");
    const xal::XObjectDescriptor copy(descriptor);
    EXPECT_EQ(copy.getServiceName(), "A service");
    EXPECT_EQ(copy.getResourceName(), "a resource");
}

TEST(ADescriptorBase, HasNoIdentityUntilItIsSet) {
    xal::XObjectDescriptor descriptor("S", "r");
    EXPECT_FALSE(descriptor.getId().isValid());
    EXPECT_FALSE(descriptor.getName().isValid());
    EXPECT_FALSE(descriptor.getUri().isValid());
    const std::string id = "i";
    descriptor.setId(id);
    descriptor.setName("n");
    descriptor.setUri("u");
    EXPECT_EQ(descriptor.getId().getValue(), "i");
    EXPECT_EQ(descriptor.getName().getValue(), "n");
    EXPECT_EQ(descriptor.getUri().getValue(), "u");
}

TEST(ADescriptorBase, IsWrittenOutWithWhatIsSetOfItsIdentity) {
    xal::XObjectDescriptor descriptor("S", "r");
    EXPECT_EQ(descriptor.getAsJson()->toString(), "{}");
    descriptor.setUri("u");
    EXPECT_EQ(descriptor.getAsJson()->toString(), R"({"uri":"u"})");
    descriptor.setId("i");
    descriptor.setName("");
    EXPECT_EQ(descriptor.getAsJson()->toString(), R"({"id":"i","name":"","uri":"u"})");
}

TEST(ADescriptorBase, PutsOnlyItsNameIntoABody) {
    xal::XObjectDescriptor descriptor("S", "r");
    descriptor.setId("i");
    descriptor.setUri("u");
    EXPECT_EQ(descriptor.getAsXALBody()->toString(), "{}");
    descriptor.setName("n");
    EXPECT_EQ(descriptor.getAsXALBody()->toString(), R"({"name":"n"})");
}

TEST(ADescriptorBase, LeavesItsIdentityOutOfTheFilter) {
    xal::XObjectDescriptor descriptor("S", "r");
    descriptor.setId("i");
    descriptor.setName("n");
    descriptor.setUri("u");
    EXPECT_THAT(descriptor.getFilter().getPairs(), IsEmpty());
}

TEST(ADescriptorBase, HasItsVirtualOperationsInTheirSlots) {
    EXPECT_EQ(cdxtest::differenceFrom(
                  {"xal::XObjectDescriptor::~XObjectDescriptor()",
                   "xal::XObjectDescriptor::~XObjectDescriptor() [deleting]", "xal::XObjectDescriptor::getId() const",
                   "xal::XObjectDescriptor::getAsJson() const", "xal::XObjectDescriptor::getAsXALBody() const"},
                  cdxtest::vtableOf("xal::XObjectDescriptor")),
              "");
}

} // namespace
