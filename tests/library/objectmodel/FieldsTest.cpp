// What holds for every field of every element, row by row of the tests' own tables.
#include "ElementTables.h"
#include "WarningsRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace cdxtest;
using testing::ElementsAre;
using testing::IsEmpty;

template <class Element>
class EveryField : public testing::Test {
protected:
    using Descriptor = typename Element::Desctype;
    using Row = FieldRow<Element>;

    static const std::vector<Row>& rows() { return ElementTable<Element>::rows(); }

    static std::string objectOfAll() {
        std::vector<std::pair<std::string, std::string>> members;
        for (const Row& row : rows())
            members.emplace_back(row.key, row.sample());
        return objectOf(members);
    }
    static Descriptor descriptorOfAll() {
        Descriptor descriptor;
        for (const Row& row : rows())
            row.set(descriptor, row.sample());
        return descriptor;
    }

    WarningsRecorder m_warnings;
};

TYPED_TEST_SUITE(EveryField, Elements, ElementName);

TYPED_TEST(EveryField, IsAbsentInAnElementOfAnEmptyObject) {
    const auto element = elementFrom<TypeParam>("{}");
    for (const auto& row : this->rows())
        EXPECT_EQ(row.valueInElement(element), "absent") << row.key;
    EXPECT_THAT(this->m_warnings.lines(), IsEmpty());
}

TYPED_TEST(EveryField, IsAbsentInAnElementOfNoObject) {
    const TypeParam element(nullptr);
    for (const auto& row : this->rows()) {
        EXPECT_EQ(row.valueInElement(element), "absent") << row.key;
        if (row.rawText) {
            EXPECT_FALSE(row.rawText(element).isValid()) << row.key;
        }
    }
    EXPECT_THAT(this->m_warnings.lines(), IsEmpty());
}

TYPED_TEST(EveryField, IsFilledFromItsKeyAlone) {
    for (const auto& row : this->rows()) {
        const auto element = elementFrom<TypeParam>(objectOf({{row.key, row.sample()}}));
        for (const auto& each : this->rows())
            EXPECT_EQ(each.valueInElement(element), each.key == row.key ? row.sample() : "absent") << each.key;
    }
    EXPECT_THAT(this->m_warnings.lines(), IsEmpty());
}

TYPED_TEST(EveryField, IsFilledTogetherWithAllOthers) {
    const auto element = elementFrom<TypeParam>(this->objectOfAll());
    for (const auto& row : this->rows())
        EXPECT_EQ(row.valueInElement(element), row.sample()) << row.key;
}

TYPED_TEST(EveryField, StaysWhenAFillDoesNotNameIt) {
    auto element = elementFrom<TypeParam>(this->objectOfAll());
    element.parseJson("{}");
    for (const auto& row : this->rows())
        EXPECT_EQ(row.valueInElement(element), row.sample()) << row.key;
}

TYPED_TEST(EveryField, ReadsTheSameInTheElementsDescriptor) {
    const auto element = elementFrom<TypeParam>(this->objectOfAll());
    const auto descriptor = element.getDescriptor();
    for (const auto& row : this->rows())
        EXPECT_EQ(row.valueInDescriptor(descriptor), row.sample()) << row.key;
}

TYPED_TEST(EveryField, IsSetAloneByItsSetter) {
    for (const auto& row : this->rows()) {
        typename TypeParam::Desctype descriptor;
        row.set(descriptor, row.sample());
        for (const auto& each : this->rows())
            EXPECT_EQ(each.valueInDescriptor(descriptor), each.key == row.key ? row.sample() : "absent") << each.key;
    }
}

TYPED_TEST(EveryField, AddsItsPairToTheFilterWhenSet) {
    for (const auto& row : this->rows()) {
        typename TypeParam::Desctype descriptor;
        row.set(descriptor, row.sample());
        EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(testing::Pair(row.key, row.sampleInFilter())));
    }
}

TYPED_TEST(EveryField, AddsItsPairToTheFilterWhenFilled) {
    for (const auto& row : this->rows()) {
        const auto descriptor = elementFrom<TypeParam>(objectOf({{row.key, row.sample()}})).getDescriptor();
        EXPECT_THAT(descriptor.getFilter().getPairs(), ElementsAre(testing::Pair(row.key, row.sampleInFilter())));
    }
}

TYPED_TEST(EveryField, IsWrittenOutAloneUnderItsKey) {
    for (const auto& row : this->rows()) {
        typename TypeParam::Desctype descriptor;
        row.set(descriptor, row.sample());
        EXPECT_EQ(descriptor.getAsJson()->toString(), objectOf({{row.key, row.sample()}}));
        EXPECT_EQ(descriptor.getAsXALBody()->toString(), objectOf({{row.key, row.sample()}}));
    }
}

TYPED_TEST(EveryField, IsWrittenOutInTheFieldEnumsOrderHoweverItWasSet) {
    typename TypeParam::Desctype descriptor;
    for (auto row = this->rows().rbegin(); row != this->rows().rend(); ++row)
        row->set(descriptor, row->sample());
    EXPECT_EQ(descriptor.getAsJson()->toString(), this->objectOfAll());
    EXPECT_EQ(descriptor.getAsXALBody()->toString(), this->objectOfAll());
}

TYPED_TEST(EveryField, IsCopiedWithTheDescriptor) {
    const auto original = this->descriptorOfAll();
    auto copy = original;
    EXPECT_EQ(copy.getAsJson()->toString(), this->objectOfAll());
    EXPECT_EQ(copy.getFilter().getPairs(), original.getFilter().getPairs());

    typename TypeParam::Desctype assigned;
    assigned = original;
    EXPECT_EQ(assigned.getAsJson()->toString(), this->objectOfAll());
    EXPECT_EQ(assigned.getFilter().getPairs(), original.getFilter().getPairs());
}

TYPED_TEST(EveryField, IsLeftOutWithItsWarningWhenItIsUnreadable) {
    for (const auto& row : this->rows()) {
        if (row.kind == Kind::ENUM || row.kind == Kind::TEXTS)
            continue;
        const auto element = elementFrom<TypeParam>(objectOf({{row.key, row.wrongSample()}}));
        EXPECT_EQ(row.valueInElement(element), "absent");
        const auto texts = this->m_warnings.texts();
        ASSERT_EQ(texts.size(), 1U) << row.key;
        EXPECT_EQ(texts.front().rfind(row.couldNotGet(), 0), 0U) << texts.front();
        EXPECT_GT(texts.front().size(), row.couldNotGet().size()) << "the reason is missing";
        EXPECT_TRUE(element.getDescriptor().getFilter().getPairs().empty());
    }
}

TYPED_TEST(EveryField, AsAScalarLetsTheOthersBeReadWhenItIsUnreadable) {
    for (const auto& bad : this->rows()) {
        if (bad.kind == Kind::ENUM || bad.kind == Kind::TEXTS)
            continue;
        std::vector<std::pair<std::string, std::string>> members;
        for (const auto& row : this->rows())
            members.emplace_back(row.key, row.key == bad.key ? bad.wrongSample() : row.sample());
        const auto element = elementFrom<TypeParam>(objectOf(members));
        for (const auto& row : this->rows())
            EXPECT_EQ(row.valueInElement(element), row.key == bad.key ? "absent" : row.sample()) << row.key;
    }
}

TYPED_TEST(EveryField, AsAnArrayOrEnumEndsTheFillWhenItIsOfAnotherType) {
    for (const auto& bad : this->rows()) {
        if (bad.kind != Kind::ENUM && bad.kind != Kind::TEXTS)
            continue;
        std::vector<std::pair<std::string, std::string>> members;
        for (const auto& row : this->rows())
            members.emplace_back(row.key, row.key == bad.key ? bad.wrongSample() : row.sample());
        this->m_warnings.lines();
        const auto element = elementFrom<TypeParam>(objectOf(members));
        for (const auto& row : this->rows())
            EXPECT_EQ(row.valueInElement(element), row.number < bad.number ? row.sample() : "absent") << row.key;
        EXPECT_THAT(this->m_warnings.texts(), ElementsAre("could not fill object from json, exception occured"));
    }
}

TYPED_TEST(EveryField, AsAnEnumIsLeftOutAloneWithItsWarningWhenTheLiteralIsUnknown) {
    for (const auto& bad : this->rows()) {
        if (bad.kind != Kind::ENUM)
            continue;
        std::vector<std::pair<std::string, std::string>> members;
        for (const auto& row : this->rows())
            members.emplace_back(row.key, row.key == bad.key ? R"("noSuchLiteral")" : row.sample());
        this->m_warnings.lines();
        const auto element = elementFrom<TypeParam>(objectOf(members));
        for (const auto& row : this->rows())
            EXPECT_EQ(row.valueInElement(element), row.key == bad.key ? "absent" : row.sample()) << row.key;
        EXPECT_THAT(this->m_warnings.texts(), ElementsAre("unknown enum value in " + bad.key));
    }
}

TYPED_TEST(EveryField, AsAnArraySkipsWhatIsNoStringWithAWarningEach) {
    for (const auto& row : this->rows()) {
        if (row.kind != Kind::TEXTS)
            continue;
        this->m_warnings.lines();
        const auto element = elementFrom<TypeParam>(objectOf({{row.key, R"([7,"one",null,"two",["three"],"four"])"}}));
        EXPECT_EQ(row.valueInElement(element), R"(["one","two","four"])");
        const std::string text = "could not get " + row.key + " as std::string, exception=";
        EXPECT_THAT(this->m_warnings.texts(),
                    ElementsAre(testing::AllOf(testing::StartsWith(text), testing::Ne(text)),
                                testing::AllOf(testing::StartsWith(text), testing::Ne(text)),
                                testing::AllOf(testing::StartsWith(text), testing::Ne(text))));
    }
}

TYPED_TEST(EveryField, AsAnEnumTakesEachOfItsLiterals) {
    for (const auto& row : this->rows()) {
        for (const auto& literal : row.literals) {
            const auto json = objectOf({{row.key, '"' + literal + '"'}});
            EXPECT_EQ(elementFrom<TypeParam>(json).getDescriptor().getAsJson()->toString(), json);
        }
    }
}

TYPED_TEST(EveryField, ThatIsAScalarHasRawTextOfTheKeptObject) {
    for (const auto& row : this->rows()) {
        EXPECT_EQ(row.rawText != nullptr, row.kind != Kind::ENUM && row.kind != Kind::TEXTS) << row.key;
        if (!row.rawText)
            continue;
        const auto element = elementFrom<TypeParam>(objectOf({{row.key, R"("as it stands")"}}));
        ASSERT_TRUE(row.rawText(element).isValid()) << row.key;
        EXPECT_EQ(row.rawText(element).getValue(), "as it stands") << row.key;
    }
}

TYPED_TEST(EveryField, HasNoRawTextWhereItsKeyIsMissing) {
    const auto element = elementFrom<TypeParam>("{}");
    for (const auto& row : this->rows()) {
        if (row.rawText) {
            EXPECT_FALSE(row.rawText(element).isValid()) << row.key;
        }
    }
}

TYPED_TEST(EveryField, ThrowsWhenItsRawTextIsNoString) {
    for (const auto& row : this->rows()) {
        if (row.rawText) {
            const auto element = elementFrom<TypeParam>(objectOf({{row.key, "[]"}}));
            EXPECT_THROW(row.rawText(element), std::exception) << row.key;
        }
    }
}

TYPED_TEST(EveryField, StandsInAscendingByteOrderOfTheKeysInTheTestsOwnTable) {
    int number = 0;
    std::string before;
    for (const auto& row : this->rows()) {
        EXPECT_EQ(row.number, number++);
        EXPECT_LT(before, row.key);
        before = row.key;
    }
}

} // namespace
