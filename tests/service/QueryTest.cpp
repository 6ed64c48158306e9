#include "Query.h"

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

class QueryTest : public ::testing::Test {
protected:
    /// A data element; fields by their keys.
    void put(const std::string& id, const std::vector<std::pair<std::string, Value>>& fields) {
        Values values(schema.fields.size());
        values[idField] = id;
        values[uriField] = elementUri(schema, id);
        for (const auto& [key, value] : fields) {
            values[schema.find(key).value()] = value;
        }
        log.prepare(std::make_shared<const Element>(schema, values, std::nullopt, log.latest() + 1));
        log.commit(log.latest() + 1, 0);
    }

    Query query(std::string_view text) {
        auto parsed = Query::parse(schema, text);
        if (const Problem* problem = std::get_if<Problem>(&parsed)) {
            ADD_FAILURE() << text << ": " << problem->detail;
            return {};
        }
        return std::get<Query>(parsed);
    }

    /// The ids of what is selected, joined.
    std::string selected(std::string_view text) {
        std::string ids;
        for (const ElementPtr& element : query(text).select(log).elements) {
            ids += element->id();
        }
        return ids;
    }

    bool isBad(std::string_view text) {
        const auto parsed = Query::parse(schema, text);
        const Problem* problem = std::get_if<Problem>(&parsed);
        return problem && problem->status == 400;
    }

    const ResourceSchema& schema = cdxservice::schema()[wellKnown().data];
    RevisionLog log{10};
};

TEST_F(QueryTest, GivesTheLatestChangeFirst) {
    put("a", {});
    put("b", {});
    put("c", {});
    EXPECT_EQ(selected(""), "cba");
}

TEST_F(QueryTest, GivesAPageAndSaysWhetherMoreFollows) {
    for (const char* id : {"a", "b", "c", "d"}) {
        put(id, {});
    }
    EXPECT_EQ(selected("limit=2"), "dc");
    EXPECT_EQ(selected("limit=2&offset=1"), "cb");
    EXPECT_EQ(selected("offset=3"), "a");
    EXPECT_EQ(selected("offset=99999999999999999999999"), "");
    EXPECT_TRUE(query("limit=3").select(log).cut);
    EXPECT_FALSE(query("limit=4").select(log).cut);
    EXPECT_FALSE(query("limit=2&offset=2").select(log).cut);
    EXPECT_TRUE(query("sort=id&limit=3").select(log).cut);
}

TEST_F(QueryTest, NamesTheNextPage) {
    EXPECT_EQ(query("name=a%20b&limit=2").next(), "name=a%20b&limit=2&offset=2");
    EXPECT_EQ(query("offset=3&limit=2").next(), "limit=2&offset=5");
}

TEST_F(QueryTest, SortsByKeysThenById) {
    put("d", {{"timestamp", std::int64_t(10)}, {"version", std::string("x")}});
    put("c", {{"timestamp", std::int64_t(9)}, {"version", std::string("y")}});
    put("b", {{"timestamp", std::int64_t(10)}, {"version", std::string("y")}});
    put("a", {{"timestamp", std::int64_t(10)}, {"version", std::string("x")}});
    EXPECT_EQ(selected("sort=timestamp"), "cabd");
    EXPECT_EQ(selected("sort=-timestamp"), "abdc");
    EXPECT_EQ(selected("sort=-timestamp,-version"), "badc");
}

TEST_F(QueryTest, SortsElementsWithoutTheKeyLastEitherWay) {
    put("b", {});
    put("a", {});
    put("c", {{"timestamp", std::int64_t(1)}});
    put("d", {{"timestamp", std::int64_t(2)}});
    EXPECT_EQ(selected("sort=timestamp"), "cdab");
    EXPECT_EQ(selected("sort=-timestamp"), "dcab");
}

TEST_F(QueryTest, SortsStringsByCodePoints) {
    put("a", {{"version", std::string("\xf0\x9f\x98\x80")}}); // beyond the basic plane
    put("b", {{"version", std::string("\xef\xbf\xbd")}});     // at its end
    put("c", {{"version", std::string("z")}});
    put("d", {{"version", std::string("Z")}});
    EXPECT_EQ(selected("sort=version"), "dcba");
}

TEST_F(QueryTest, DoesNotSortByArrays) {
    put("b", {{"cdxClientDataReport", std::vector<std::string>{"1"}}});
    put("a", {{"cdxClientDataReport", std::vector<std::string>{"2"}}});
    EXPECT_EQ(selected("sort=-cdxClientDataReport"), "ab");
}

TEST_F(QueryTest, SelectsWhatMatchesEveryPair) {
    put("a", {{"name", std::string("x")}, {"isMixinOfVinRequested", true}});
    put("b", {{"name", std::string("x")}, {"timeToLive", std::int64_t(5)}});
    put("c", {{"name", std::string("a+b c")}, {"deliveryMode", std::string("atMostOnce")}});
    put("d", {{"cdxClientDataReport", std::vector<std::string>{"one", "two"}}});
    EXPECT_EQ(selected("name=x"), "ba");
    EXPECT_EQ(selected("name=x&isMixinOfVinRequested=true"), "a");
    EXPECT_EQ(selected("timeToLive=5"), "b");
    EXPECT_EQ(selected("timeToLive=05"), "");
    EXPECT_EQ(selected("name=a+b%20c"), "c");
    EXPECT_EQ(selected("deliveryMode=atMostOnce"), "c");
    EXPECT_EQ(selected("cdxClientDataReport=two"), "d");
    EXPECT_EQ(selected("name="), "");
    EXPECT_EQ(selected("id=c"), "c");
}

TEST_F(QueryTest, GivesChosenFieldsWithIdAndUri) {
    put("a", {{"name", std::string("x")}, {"timestamp", std::int64_t(1)}, {"version", std::string("v")}});
    std::string out;
    writeElement(out, schema, log.elements().begin()->second->values(), query("fields=version,timestamp").fields());
    EXPECT_EQ(out, "{\"id\":\"a\",\"uri\":\"/CarDataExchange/cdxData/a\",\"timestamp\":1,\"version\":\"v\"}");
}

TEST_F(QueryTest, IsBadWithUnknownOrRepeatedKeysAndNames) {
    for (const char* text : {"color=red", "limit=1&limit=1", "name=a&name=a", "fields=a", "fields=name,name",
                             "fields=", "fields=name,", "sort=", "sort=-", "sort=color", "sort=name,-name",
                             "sort=--name", "name", "&", "name=a&", "=a", "Limit=1", "expand=all"}) {
        EXPECT_TRUE(isBad(text)) << text;
    }
}

TEST_F(QueryTest, IsBadWithALimitOrOffsetThatIsNone) {
    for (const char* text : {"limit=0", "limit=-1", "limit=", "limit=x", "limit=1.0", "limit=+1", "offset=-1",
                             "offset=", "offset=1e3", "limit=%", "name=%zz"}) {
        EXPECT_TRUE(isBad(text)) << text;
    }
}

} // namespace
} // namespace cdxservice
