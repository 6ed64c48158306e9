// The virtual tables as the compiled library has them: their slots' order is part of the interface.
#include <Cardataexchange.h>
#include <support/VtableLayout.h>

#include <gtest/gtest.h>

namespace {

using cdxtest::differenceFrom;
using cdxtest::vtableOf;

const std::string json = "std::shared_ptr<xalutil::JsonObject>";
const std::string text = "std::string const&";

class VtableOf : public testing::TestWithParam<std::string> {
protected:
    const std::string m_element = GetParam();
    const std::string m_class = "xalobjects_GX2::CardataexchangeService::" + m_element;
    const std::string m_template = "xal::XObject<" + m_class + "Descriptor>::";
};

TEST_P(VtableOf, TheElementHasItsOperationsInTheirSlots) {
    EXPECT_EQ(differenceFrom({m_template + "parseJson(" + text + ")",                //
                              m_class + "::~" + m_element + "()",                    //
                              m_class + "::~" + m_element + "() [deleting]",         //
                              m_template + "getId() const",                          //
                              m_template + "getUri() const",                         //
                              m_template + "getName() const",                        //
                              m_class + "::fillFromJson(" + json + ")",              //
                              m_template + "getDescriptor() const",                  //
                              m_template + "copyWithIdFromUri(" + text + ") const"}, //
                             vtableOf(m_class)),
              "");
}

TEST_P(VtableOf, TheDescriptorHasItsOperationsInTheirSlots) {
    const std::string name = m_element + "Descriptor";
    const std::string descriptor = m_class + "Descriptor::";
    EXPECT_EQ(differenceFrom({descriptor + "~" + name + "()",            //
                              descriptor + "~" + name + "() [deleting]", //
                              "xal::XObjectDescriptor::getId() const",   //
                              descriptor + "getAsJson() const",          //
                              descriptor + "getAsXALBody() const"},      //
                             vtableOf(m_class + "Descriptor")),
              "");
}

INSTANTIATE_TEST_SUITE_P(Model, VtableOf,
                         testing::Values("CdxData", "CdxClientState", "CdxConfig", "CdxTrigger", "CdxMasterControl"),
                         [](const auto& element) { return element.param; });

TEST(VtableLayout, NamesTheSlotThatDiffers) {
    EXPECT_EQ(differenceFrom({"a()", "b()"}, {{"x()", "a()"}, {"c()"}}), "slot 1: b() expected, found c()\n");
    EXPECT_EQ(differenceFrom({"a()"}, {{"a()"}, {"b()"}}), "slot 1: nothing expected, found b()\n");
}

TEST(VtableLayout, RefusesAClassThatNobodyDefines) {
    EXPECT_THROW(vtableOf("no::SuchClass"), std::runtime_error);
}

} // namespace
