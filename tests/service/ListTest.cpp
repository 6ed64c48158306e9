#include "ServiceFixture.h"

namespace cdxservice {
namespace {

class Listing : public ServiceFixture {
protected:
    std::string ids(const std::string& query) {
        const auto answer = client->get(std::string(configPath) + query);
        EXPECT_EQ(answer.status, 200) << query << answer.body;
        std::string joined;
        const auto list = boost::json::parse(answer.body);
        for (const auto& element : list.as_array()) {
            joined += text(element.at("id"));
        }
        return joined;
    }
};

TEST_F(Listing, OfNothingIsAnEmptyArray) {
    EXPECT_EQ(client->get(configPath).body, "[]");
}

TEST_F(Listing, BeginsWithTheLatestChange) {
    for (const char* id : {"a", "b", "c"}) {
        make(configPath, std::string("{\"id\":\"") + id + "\"}");
    }
    client->patch(std::string(configPath) + "/a", R"({"recordId":"x"})");
    EXPECT_EQ(ids(""), "acb");
}

TEST_F(Listing, AnswersAQueryThatIsNoUtf8WithTextAllTheSame) {
    for (const char* query : {"?%ff=1", "?fields=%c3", "?sort=%ff"}) {
        const auto answer = client->get(std::string(configPath) + query);
        EXPECT_EQ(answer.status, 400) << query;
        boost::json::error_code error;
        boost::json::parse(answer.body, error);
        EXPECT_FALSE(error) << query << ": " << answer.body;
    }
}

TEST_F(Listing, IsPagedThroughByItsLinks) {
    for (const char* id : {"a", "b", "c", "d", "e"}) {
        make(configPath, std::string("{\"id\":\"") + id + R"(","name":"n ü"})");
    }
    std::string target = std::string(configPath) + "?sort=id&limit=2&name=n%20%C3%BC";
    std::string seen;
    int pages = 0;
    while (!target.empty()) {
        const auto answer = client->get(target);
        ASSERT_EQ(answer.status, 200) << target;
        const auto list = boost::json::parse(answer.body);
        for (const auto& element : list.as_array()) {
            seen += text(element.at("id"));
        }
        ++pages;
        const std::string link = answer.header("Link");
        const auto end = link.find(">; rel=\"next\"");
        target = end == std::string::npos ? "" : link.substr(1, end - 1);
    }
    EXPECT_EQ(seen, "abcde");
    EXPECT_EQ(pages, 3);
}

TEST_F(Listing, HoldsChosenFieldsWithIdAndUri) {
    make(configPath, R"({"id":"a","name":"n","recordId":"r","recordBody":"b"})");
    EXPECT_EQ(client->get(std::string(configPath) + "?fields=recordId").body,
              R"([{"id":"a","uri":"/CarDataExchange/cdxConfig/a","recordId":"r"}])");
}

TEST_F(Listing, WithABadQueryIsRefused) {
    for (const char* query :
         {"?color=red", "?limit=0", "?limit=1&limit=2", "?fields=color", "?sort=name,name", "?offset=-1"}) {
        EXPECT_EQ(client->get(std::string(configPath) + query).status, 400) << query;
    }
}

TEST_F(Listing, HoldsLargeElementsWhole) {
    const std::string body(100'000, 'x');
    make(configPath, R"({"id":"a","recordBody":")" + body + "\"}");
    make(configPath, R"({"id":"b"})");
    make(configPath, R"({"id":"c","recordBody":")" + body + "\"}");
    make(configPath, R"({"id":"d","recordBody":")" + body + "\"}");
    EXPECT_EQ(ids(""), "dcba");
}

} // namespace
} // namespace cdxservice
