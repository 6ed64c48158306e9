#include "ScriptedBackend.h"
#include "ServiceFixture.h"
#include "TemporaryFile.h"

#include <functional>
#include <vector>

namespace cdxservice {
namespace {

/// What a change is asked for with, so that each mistake can be made apart from the others.
struct Change {
    std::string method = "PATCH";
    std::string id = "one";
    std::string host = "localhost";
    std::string headers;
    std::string token = "Authorization: Bearer secret\r\n";
    std::string type = "application/json";
    std::string members = R"("backendChannelControl":"okTalkNormal")";
    std::string behind;
    std::string length;

    std::string text() const {
        const std::string body = length.empty() ? "{" + members + "}" + behind : "";
        return method + " " + controlPath + "/" + id + " HTTP/1.1\r\nHost: " + host + "\r\n" + token + headers +
               "Content-Type: " + type +
               "\r\nContent-Length: " + (length.empty() ? std::to_string(body.size()) : length) + "\r\n\r\n" + body;
    }
};

struct Mistake {
    const char* what;
    int status;
    std::function<void(Change&)> make;
};

/// In the order in which they are looked for.
const std::vector<Mistake>& mistakes() {
    static const std::vector<Mistake> all = {
        {"two lengths", 400, [](Change& change) { change.headers += "Content-Length: 1\r\n"; }},
        {"another host", 421, [](Change& change) { change.host = "evil"; }},
        {"no token", 401, [](Change& change) { change.token.clear(); }},
        {"another origin", 403, [](Change& change) { change.headers += "Origin: http://evil\r\n"; }},
        {"no such element", 404, [](Change& change) { change.id = "none"; }},
        {"no such method", 405, [](Change& change) { change.method = "PUT"; }},
        {"another type", 415, [](Change& change) { change.type = "text/plain"; }},
        {"another state", 412, [](Change& change) { change.headers += "If-Match: \"x\"\r\n"; }},
        {"a body over the limit", 413, [](Change& change) { change.length = "2001"; }},
        {"no JSON", 400, [](Change& change) { change.behind = "x"; }},
        {"the name of another", 409, [](Change& change) { change.members += R"(,"name":"two")"; }},
        {"a large element", 413,
         [](Change& change) { change.members += R"(,"eventTicket":")" + std::string(1500, 'x') + '"'; }},
        {"an unknown field", 422, [](Change& change) { change.members += R"(,"color":1)"; }},
    };
    return all;
}

class Order : public ServiceFixture {
protected:
    Order() {
        options.tokenFile = token.path();
        options.maxBodyBytes = 2000;
        options.store = std::make_shared<Store>(std::make_unique<ScriptedBackend>(kept));
    }
    void SetUp() override {
        ServiceFixture::SetUp();
        make(R"({"id":"one","permittedDataType":[")" + std::string(1800, 'x') + "\"]}");
        make(R"({"id":"two","name":"two"})");
    }
    void make(const std::string& element) {
        const std::string headers = std::string("Authorization: Bearer secret\r\n") + jsonType;
        ASSERT_EQ(client->request("POST", controlPath, element, headers).status, 201);
    }

    const TemporaryFile token{"secret"};
    ScriptedBackend::Kept kept;
};

TEST_F(Order, OfTwoMistakesTheOneThatIsLookedForFirstIsTold) {
    for (std::size_t first = 0; first < mistakes().size(); ++first) {
        for (std::size_t second = first; second < mistakes().size(); ++second) {
            Change change;
            mistakes()[second].make(change);
            if (second != first) {
                mistakes()[first].make(change);
            }
            const auto answer = client->exchange(change.text());
            EXPECT_EQ(answer.status, mistakes()[first].status)
                << mistakes()[first].what << " and " << mistakes()[second].what;
            EXPECT_EQ(answer.header("Content-Type"), "application/problem+json");
        }
    }
    EXPECT_EQ(kept.state.changes.size(), 2u);
}

TEST_F(Order, OfAnyMistakeAndAStoreThatDoesNotTakeIsTheMistakeTold) {
    kept.next = StoreBackend::Outcome::Away;
    for (const Mistake& mistake : mistakes()) {
        Change change;
        mistake.make(change);
        EXPECT_EQ(client->exchange(change.text()).status, mistake.status) << mistake.what;
    }
    EXPECT_EQ(client->exchange(Change().text()).status, 503);
    EXPECT_EQ(client->get("/health").status, 503);
    kept.next = StoreBackend::Outcome::Full;
    EXPECT_EQ(client->exchange(Change().text()).status, 507);
    EXPECT_EQ(client->get("/health").status, 200);
    kept.next = StoreBackend::Outcome::Stored;
    EXPECT_EQ(client->exchange(Change().text()).status, 200);
}

} // namespace
} // namespace cdxservice
