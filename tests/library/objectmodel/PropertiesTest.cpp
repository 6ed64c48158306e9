// Properties that hold for any input, tried with many thousands of made-up cases from a fixed seed. What the library
// does is compared with models that are as plain as can be.
#include "ElementTables.h"
#include "WarningsRecorder.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>

namespace {

using namespace cdxtest;
namespace json = boost::json;
using Pairs = std::vector<std::pair<std::string, std::string>>;

constexpr std::uint32_t seed = 20260611;
constexpr int casesPerElement = 4000;

class Random {
public:
    std::size_t below(std::size_t bound) { return m_engine() % bound; }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    std::int64_t number() {
        const auto high = std::uint64_t{m_engine()} << 32;
        const auto value = static_cast<std::int64_t>(high | m_engine());
        return oneIn(2) ? value : value % 1000;
    }
    std::string text() {
        static const char* const pieces[] = {"a",  "Z",    " ", "\"", "\\", "/", "\n",
                                             "\t", "\x01", "ü", "€",  "𝄞",  "7", "{"};
        std::string result;
        for (auto length = oneIn(8) ? below(200) : below(12); length > 0; --length)
            result += pieces[below(std::size(pieces))];
        return result;
    }

    /// A value that a field takes.
    template <class Element>
    std::string fitting(const FieldRow<Element>& row) {
        switch (row.kind) {
        case Kind::TEXT:
            return json::serialize(json::string(text()));
        case Kind::NUMBER:
            return std::to_string(number());
        case Kind::FLAG:
            return oneIn(2) ? "true" : "false";
        case Kind::ENUM:
            return '"' + row.literals[below(row.literals.size())] + '"';
        case Kind::TEXTS:
            break;
        }
        json::array texts;
        for (auto length = below(4); length > 0; --length)
            texts.emplace_back(text());
        return json::serialize(texts);
    }

    /// Any JSON value.
    std::string anything(int depth = 0) {
        static const char* const oddNumbers[] = {
            "1.5", "-0", "1e3", "3.0", "9223372036854775808", "-9223372036854775809", "1e99", "1E-99", "0.0e0"};
        switch (below(depth < 2 ? 9 : 7)) {
        case 0:
            return "null";
        case 1:
            return oneIn(2) ? "true" : "false";
        case 2:
            return std::to_string(number());
        case 3:
            return oddNumbers[below(std::size(oddNumbers))];
        case 4:
            return R"("atMostOnce")";
        case 5:
            return "[]";
        case 6:
            return json::serialize(json::string(text()));
        case 7: {
            std::string entries = "[";
            for (auto length = 1 + below(4); length > 0; --length)
                entries += (entries.size() > 1 ? "," : "") + anything(depth + 1);
            return entries + "]";
        }
        default:
            return objectOf({{"elementId", anything(depth + 1)}});
        }
    }

private:
    std::mt19937 m_engine{seed};
};

/// What a fill must lead to, told from the members alone.
template <class Element>
struct FillModel {
    std::map<std::string, std::string> values; ///< by key, as JSON text
    Pairs filter;
    std::vector<std::string> warnings; ///< their beginnings

    void put(const std::string& key, const std::string& value, const std::optional<std::string>& inFilter) {
        values[key] = value;
        if (!inFilter)
            return;
        const auto same =
            std::find_if(filter.begin(), filter.end(), [&](const auto& pair) { return pair.first == key; });
        if (same == filter.end())
            filter.emplace_back(key, *inFilter);
        else
            same->second = *inFilter;
    }

    void fill(const json::object& object) {
        for (const char* key : {"id", "name", "uri"}) {
            const auto* value = object.if_contains(key);
            if (value && !value->is_string())
                return giveUp();
            if (value)
                values[key] = json::serialize(*value);
        }
        for (const auto& row : ElementTable<Element>::rows()) {
            const auto* value = object.if_contains(row.key);
            if (value && !fillField(row, *value))
                return giveUp();
        }
    }

    void set(const FieldRow<Element>& row, const std::string& text) { fillField(row, json::parse(text)); }

private:
    void giveUp() { warnings.emplace_back("could not fill object from json, exception occured"); }

    /// False: the fill ends.
    bool fillField(const FieldRow<Element>& row, const json::value& value) {
        const std::string text = json::serialize(value);
        switch (row.kind) {
        case Kind::TEXT:
            if (!value.is_string())
                break;
            put(row.key, text, std::string(value.as_string()));
            return true;
        case Kind::NUMBER:
            if (!value.is_int64())
                break;
            put(row.key, text, text);
            return true;
        case Kind::FLAG:
            if (!value.is_bool())
                break;
            put(row.key, text, text);
            return true;
        case Kind::ENUM: {
            if (!value.is_string())
                return false;
            const std::string literal(value.as_string());
            if (std::find(row.literals.begin(), row.literals.end(), literal) == row.literals.end())
                warnings.push_back("unknown enum value in " + row.key);
            else
                put(row.key, text, literal);
            return true;
        }
        case Kind::TEXTS: {
            if (!value.is_array())
                return false;
            json::array texts;
            for (const auto& entry : value.as_array()) {
                if (entry.is_string())
                    texts.push_back(entry);
                else
                    warnings.push_back(row.couldNotGet());
            }
            put(row.key, json::serialize(texts),
                texts.empty() ? std::nullopt : std::optional(std::string(texts.front().as_string())));
            return true;
        }
        }
        warnings.push_back(row.couldNotGet());
        return true;
    }
};

template <class Element>
class OpenElement : public Element {
public:
    OpenElement() : Element(nullptr) {}
    typename Element::Desctype& own() { return this->descriptor(); }
};

template <class Element>
class AnyInput : public testing::Test {
protected:
    using Model = FillModel<Element>;

    /// An object with some of the element's keys and perhaps another, in any order; `share` of 8 values fit.
    std::string object(std::size_t share) {
        Pairs members;
        for (const char* key : {"id", "name", "uri"}) {
            if (m_random.oneIn(3))
                members.emplace_back(key, m_random.below(40) < 32 + share
                                              ? json::serialize(json::string(m_random.text()))
                                              : m_random.anything());
        }
        for (const auto& row : ElementTable<Element>::rows()) {
            if (!m_random.oneIn(3))
                members.emplace_back(row.key, m_random.below(8) < share ? m_random.fitting(row) : m_random.anything());
        }
        if (m_random.oneIn(4))
            members.emplace_back("unknown", m_random.anything());
        for (std::size_t last = members.size(); last > 1; --last)
            std::swap(members[last - 1], members[m_random.below(last)]);
        return objectOf(members);
    }

    void expectValues(const typename Element::Desctype& descriptor, const Model& model) {
        for (const auto& row : ElementTable<Element>::rows()) {
            const auto expected = model.values.find(row.key);
            ASSERT_EQ(row.valueInDescriptor(descriptor), expected == model.values.end() ? "absent" : expected->second)
                << row.key;
        }
        ASSERT_EQ(descriptor.getFilter().getPairs(), model.filter);
    }

    void expectWarnings(const Model& model) {
        const auto texts = m_warnings.texts();
        ASSERT_EQ(texts.size(), model.warnings.size());
        for (std::size_t index = 0; index < texts.size(); ++index)
            ASSERT_EQ(texts[index].rfind(model.warnings[index], 0), 0U) << texts[index];
    }

    Random m_random;
    WarningsRecorder m_warnings;
};

TYPED_TEST_SUITE(AnyInput, Elements, ElementName);

TYPED_TEST(AnyInput, EitherFillsAFieldOrWarns) {
    for (int number = 0; number < casesPerElement; ++number) {
        const auto text = this->object(number % 9);
        SCOPED_TRACE(text);
        FillModel<TypeParam> model;
        model.fill(json::parse(text).as_object());
        TypeParam element(nullptr);
        ASSERT_NO_THROW(element.parseJson(text));
        this->expectValues(element.getDescriptor(), model);
        this->expectWarnings(model);
        if (this->HasFatalFailure())
            return;
    }
}

TYPED_TEST(AnyInput, MakesTheSameElementThroughTheConstructorOrIsRefusedForItsIdentity) {
    for (int number = 0; number < casesPerElement; ++number) {
        const auto text = this->object(number % 9);
        SCOPED_TRACE(text);
        const auto object = json::parse(text).as_object();
        const bool hasBadIdentity = [&object] {
            for (const char* key : {"id", "name", "uri"})
                if (const auto* value = object.if_contains(key); value && !value->is_string())
                    return true;
            return false;
        }();
        if (hasBadIdentity) {
            ASSERT_THROW(elementFrom<TypeParam>(text), std::exception);
            ASSERT_TRUE(this->m_warnings.lines().empty());
            continue;
        }
        const auto made = elementFrom<TypeParam>(text);
        TypeParam filled(nullptr);
        this->m_warnings.lines();
        filled.parseJson(text);
        ASSERT_EQ(made.getDescriptor().getAsJson()->toString(), filled.getDescriptor().getAsJson()->toString());
        this->m_warnings.lines();
    }
}

TYPED_TEST(AnyInput, WrittenOutAndFilledAgainIsTheSame) {
    for (int number = 0; number < casesPerElement; ++number) {
        TypeParam first(nullptr);
        first.parseJson(this->object(8));
        const auto written = first.getDescriptor().getAsJson();
        const auto text = written->toString();
        SCOPED_TRACE(text);
        this->m_warnings.lines();

        const TypeParam second(written);
        const auto third = elementFrom<TypeParam>(text);
        ASSERT_EQ(second.getDescriptor().getAsJson()->toString(), text);
        ASSERT_EQ(third.getDescriptor().getAsJson()->toString(), text);
        ASSERT_TRUE(this->m_warnings.lines().empty());
    }
}

TYPED_TEST(AnyInput, SetOnADescriptorStandsInItsBodyAndNothingElseDoes) {
    const auto& rows = ElementTable<TypeParam>::rows();
    for (int number = 0; number < casesPerElement; ++number) {
        typename TypeParam::Desctype descriptor;
        std::map<int, std::pair<std::string, std::string>> expected;
        for (auto count = this->m_random.below(2 * rows.size()); count > 0; --count) {
            const auto& row = rows[this->m_random.below(rows.size())];
            const auto value = this->m_random.fitting(row);
            row.set(descriptor, value);
            expected[row.number] = {row.key, value};
        }
        Pairs members;
        for (const auto& [place, member] : expected)
            members.push_back(member);
        ASSERT_EQ(descriptor.getAsXALBody()->toString(), objectOf(members));
        ASSERT_EQ(descriptor.getAsJson()->toString(), objectOf(members));
    }
}

TYPED_TEST(AnyInput, LeavesAFilterThatIsAsIfEachPairHadBeenAddedAtOnce) {
    const auto& rows = ElementTable<TypeParam>::rows();
    for (int number = 0; number < casesPerElement; ++number) {
        OpenElement<TypeParam> element;
        FillModel<TypeParam> model;
        std::string story;
        for (auto steps = 1 + this->m_random.below(5); steps > 0; --steps) {
            switch (this->m_random.below(4)) {
            case 0: {
                const auto& row = rows[this->m_random.below(rows.size())];
                const auto value = this->m_random.fitting(row);
                row.set(element.own(), value);
                model.set(row, value);
                story += " set " + row.key + " " + value;
                break;
            }
            case 1: {
                OpenElement<TypeParam> copy(element);
                if (this->m_random.oneIn(2))
                    element = std::move(copy);
                else
                    element = copy;
                story += " copy";
                break;
            }
            default: {
                const auto text = this->object(7);
                element.parseJson(text);
                model.fill(json::parse(text).as_object());
                story += " fill " + text;
            }
            }
        }
        SCOPED_TRACE(story);
        const auto handedOut = static_cast<const TypeParam&>(element).getDescriptor();
        ASSERT_EQ(static_cast<const xal::XObjectDescriptor&>(handedOut).getFilter().getPairs(), model.filter);
        this->expectValues(element.own(), model);
        if (this->HasFatalFailure())
            return;
    }
}

} // namespace
