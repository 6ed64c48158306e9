#include "ServiceFixture.h"

namespace cdxservice {
namespace {

class Writing : public ServiceFixture {
protected:
    int revision() {
        const auto service = object(client->get("/CarDataExchange").body);
        return static_cast<int>(service.at("resources").at("cdxConfig").at("revision").as_int64());
    }
};

TEST_F(Writing, APostMakesAnElementWithIdentityAndANumber) {
    const auto answer = client->post(configPath, R"({"name":"RefreshField^true>>A","recordId":"r"})");
    ASSERT_EQ(answer.status, 201);
    const auto element = object(answer.body);
    const std::string id = text(element.at("id"));
    EXPECT_EQ(id.size(), 36u);
    EXPECT_EQ(id[14], '4');
    EXPECT_EQ(text(element.at("name")), "A");
    EXPECT_EQ(text(element.at("uri")), std::string(configPath) + "/" + id);
    EXPECT_EQ(element.at("elementId").as_int64(), 1);
    EXPECT_EQ(answer.header("Location"), std::string(configPath) + "/" + id);
    EXPECT_EQ(answer.header("ETag"), client->get(answer.header("Location")).header("ETag"));
    EXPECT_EQ(answer.body, client->get(answer.header("Location")).body);
}

TEST_F(Writing, APatchAnswersTheWholeElement) {
    const std::string path = std::string(configPath) + "/" + make(configPath, R"({"recordId":"r"})");
    const auto answer = client->patch(path, R"({"recordBody":"b"})");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, client->get(path).body);
    EXPECT_EQ(answer.header("ETag"), client->get(path).header("ETag"));
    EXPECT_EQ(text(object(answer.body).at("recordId")), "r");
    EXPECT_EQ(client->request("PATCH", path, "{}", jsonType).status, 200);
}

TEST_F(Writing, ADeleteEndsTheElement) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    const auto answer = client->request("DELETE", path);
    EXPECT_EQ(answer.status, 204);
    EXPECT_EQ(answer.header("Content-Length"), "");
    EXPECT_EQ(client->get(path).status, 404);
    EXPECT_EQ(client->request("DELETE", path).status, 404);
    EXPECT_EQ(client->patch(path, "{}").status, 404);
    EXPECT_EQ(revision(), 2);
}

TEST_F(Writing, APostOfAKnownClientReplacesItsState) {
    const auto first = client->post(statePath, R"({"name":"A","canonicalName":"A"})");
    const auto again = client->post(statePath, R"({"name":"RefreshField^false>>A"})");
    EXPECT_EQ(again.status, 200);
    EXPECT_NE(again.header("ETag"), "");
    EXPECT_NE(again.header("ETag"), first.header("ETag"));
    EXPECT_EQ(object(again.body).at("id"), object(first.body).at("id"));
    EXPECT_FALSE(object(again.body).contains("canonicalName"));
    EXPECT_EQ(client->post(statePath, R"({"name":"A","id":"other"})").status, 409);
}

TEST_F(Writing, APreconditionHoldsForPatchAndDelete) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    const std::string tag = client->get(path).header("ETag");
    const auto write = [&](const char* method, const std::string& match) {
        return client
            ->request(method, path, method[0] == 'P' ? R"({"recordId":"x"})" : "",
                      jsonType + ("If-Match: " + match + "\r\n"))
            .status;
    };
    EXPECT_EQ(write("PATCH", "\"x\""), 412);
    EXPECT_EQ(write("PATCH", "W/" + tag), 412);
    EXPECT_EQ(write("DELETE", "\"x\""), 412);
    EXPECT_EQ(write("DELETE", "\"x,*,y\""), 412) << "a tag may hold what separates tags";
    EXPECT_EQ(revision(), 1);
    EXPECT_EQ(write("PATCH", "\"x\", " + tag), 200);
    EXPECT_EQ(write("DELETE", tag), 412) << "the tag of an earlier state";
    EXPECT_EQ(write("DELETE", "*"), 204);
}

TEST_F(Writing, APreconditionMayNameTheStatesThatAreNotToBeChanged) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    const std::string tag = client->get(path).header("ETag");
    const auto write = [&](const char* method, const std::string& match) {
        return client
            ->request(method, path, method[0] == 'P' ? R"({"recordId":"x"})" : "",
                      jsonType + ("If-None-Match: " + match + "\r\n"))
            .status;
    };
    EXPECT_EQ(write("PATCH", "*"), 412);
    EXPECT_EQ(write("PATCH", tag), 412);
    EXPECT_EQ(write("DELETE", "\"x\", W/" + tag), 412);
    EXPECT_EQ(revision(), 1);
    EXPECT_EQ(write("PATCH", "\"x\""), 200);
    EXPECT_EQ(write("DELETE", tag), 204) << "the tag of an earlier state";
}

TEST_F(Writing, APreconditionComesBeforeTheBodyIsLookedAt) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    EXPECT_EQ(client->request("PATCH", path, "not json", std::string(jsonType) + "If-Match: \"x\"\r\n").status, 412);
    EXPECT_EQ(client->request("PATCH", path, "not json", "Content-Type: text/plain\r\nIf-Match: \"x\"\r\n").status,
              415);
}

TEST_F(Writing, AnotherTypeOrNoneIsRefused) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    const auto post = [&](const std::string& headers) {
        return client->request("POST", configPath, "{}", headers).status;
    };
    EXPECT_EQ(post(""), 415);
    EXPECT_EQ(post("Content-Type: text/plain\r\n"), 415);
    EXPECT_EQ(post("Content-Type: application/merge-patch+json\r\n"), 415);
    EXPECT_EQ(post("Content-Type: application/json; charset=latin1\r\n"), 415);
    EXPECT_EQ(post("Content-Type: Application/JSON; charset=UTF-8\r\n"), 201);
    EXPECT_EQ(post("Content-Type: application/json; a=b; charset=latin1\r\n"), 415);
    EXPECT_EQ(post("Content-Type: application/json; charset=utf-8; charset=latin1\r\n"), 415);
    EXPECT_EQ(post("Content-Type: application/json; a=\"; charset=latin1\"; charset=\"utf-8\";\r\n"), 201);
    EXPECT_EQ(post("Content-Type: application/json; charset\r\n"), 415);
    EXPECT_EQ(post("Content-Type: application/json; a=\"b\r\n"), 415);
    EXPECT_EQ(client->request("PATCH", path, "{}", "Content-Type: application/json-patch+json\r\n").status, 415);
    EXPECT_EQ(client->request("PATCH", path, "{}", "Content-Type: application/merge-patch+json\r\n").status, 200);
}

TEST_F(Writing, ABodyThatIsNoJsonObjectIsBad) {
    const std::string deep = R"({"name":)" + std::string(32, '[') + std::string(32, ']') + "}";
    for (const std::string& body : {std::string("x"), std::string("[]"), std::string("\"a\""), std::string("null"),
                                    std::string(R"({"name":"a","name":"b"})"), std::string(R"({"name":"\ud800"})"),
                                    std::string("{\"name\":\"\xff\"}"), deep, std::string("{} {}")}) {
        const auto answer = client->post(configPath, body);
        EXPECT_EQ(answer.status, 400) << body;
        EXPECT_EQ(answer.header("Content-Type"), "application/problem+json");
    }
    EXPECT_EQ(client->request("POST", configPath, "", std::string(jsonType) + "Content-Length: 0\r\n").status, 400);
    EXPECT_EQ(revision(), 0);
}

TEST_F(Writing, ANumberBeyondAllIsOfAWrongType) {
    for (const char* field : {"expiryTime", "recordId"}) {
        const auto answer = client->post(configPath, std::string("{\"") + field + "\":1e99999999999}");
        EXPECT_EQ(answer.status, 422) << field;
        EXPECT_EQ(text(object(answer.body).at("pointer")), std::string("/") + field);
    }
}

TEST_F(Writing, AWrongFieldIsPointedAt) {
    const auto answer = client->post(configPath, R"({"recordId":"r","expiryTime":"soon"})");
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(text(object(answer.body).at("pointer")), "/expiryTime");
    EXPECT_EQ(revision(), 0);
}

TEST_F(Writing, WhatIsWrittenComesBackInUtf8WithShortEscapes) {
    const auto answer =
        client->post(configPath, R"({"id":"a","recordBody":"\u00e9\u0000\u001F\/\n\"\\\ud83d\ude00\u007f"})");
    ASSERT_EQ(answer.status, 201);
    EXPECT_NE(answer.body.find("\"recordBody\":\"\xc3\xa9\\u0000\\u001f/\\n\\\"\\\\\xf0\x9f\x98\x80\x7f\""),
              std::string::npos)
        << answer.body;
}

TEST_F(Writing, ABodyMayComeInChunks) {
    const auto answer =
        client->exchange("POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + host() + jsonType +
                         "Transfer-Encoding: chunked\r\n\r\n5\r\n{\"id\"\r\n5;x=y\r\n:\"a\"}\r\n0\r\nA: b\r\n\r\n");
    EXPECT_EQ(answer.status, 201);
    EXPECT_EQ(client->get(std::string(configPath) + "/a").status, 200);
}

TEST_F(Writing, AChunkedBodyThatComesBitByBitIsReadWhole) {
    const std::string bytes = "POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + host() + jsonType +
                              "Transfer-Encoding: chunked\r\n\r\n5\r\n{\"id\"\r\n5\r\n:\"a\"}\r\n0\r\n\r\n";
    ASSERT_TRUE(client->tcp().send(bytes, 1));
    EXPECT_EQ(client->read().status, 201);
    EXPECT_EQ(client->get(std::string(configPath) + "/a").status, 200) << "on the same connection";
}

TEST_F(Writing, ABodyHeldBackIsAskedFor) {
    const std::string head = "POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + host() + jsonType +
                             "Content-Length: 2\r\nExpect: 100-continue\r\n\r\n";
    ASSERT_TRUE(client->send(head));
    EXPECT_EQ(client->read().status, 100);
    ASSERT_TRUE(client->send("{}"));
    EXPECT_EQ(client->read().status, 201);
    ASSERT_TRUE(
        client->send("POST /nowhere HTTP/1.1\r\n" + host() + "Content-Length: 2\r\nExpect: 100-continue\r\n\r\n"));
    EXPECT_EQ(client->read().status, 404) << "without being asked for";
    EXPECT_TRUE(client->isEnded());
}

TEST_F(Writing, RequestsInARowAreAnsweredInTheirOrder) {
    std::string bytes;
    for (int i = 0; i < 200; ++i) {
        bytes += "POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + host() + jsonType + "Content-Length: 2\r\n\r\n{}";
    }
    ASSERT_TRUE(client->send(bytes));
    for (int i = 1; i <= 200; ++i) {
        const auto answer = client->read();
        ASSERT_EQ(answer.status, 201);
        EXPECT_EQ(object(answer.body).at("elementId").as_int64(), i);
    }
}

TEST_F(Writing, TheBodyOfARefusedRequestIsNoRequest) {
    const std::string inner = "GET /health HTTP/1.1\r\n" + host() + "\r\n";
    ASSERT_TRUE(client->send("POST /nowhere HTTP/1.1\r\n" + host() + "Content-Length: " + std::to_string(inner.size()) +
                             "\r\n\r\n" + inner + "GET /CarDataExchange HTTP/1.1\r\n" + host() + "\r\n"));
    EXPECT_EQ(client->read().status, 404);
    EXPECT_NE(client->read().body.find("epoch"), std::string::npos);
}

} // namespace
} // namespace cdxservice
