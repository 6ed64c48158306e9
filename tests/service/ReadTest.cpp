#include "ServiceFixture.h"

namespace cdxservice {
namespace {

class Reading : public ServiceFixture {};

TEST_F(Reading, TheServiceNamesItsResourcesAndTheirRevisions) {
    make(configPath, "{}");
    make(configPath, "{}");
    const auto answer = client->get("/CarDataExchange");
    EXPECT_EQ(answer.status, 200);
    const auto service = object(answer.body);
    EXPECT_EQ(text(service.at("name")), "CarDataExchange");
    EXPECT_FALSE(text(service.at("version")).empty());
    EXPECT_EQ(text(service.at("epoch")).size(), 32u);
    EXPECT_EQ(service.at("resources").as_object().size(), 5u);
    EXPECT_EQ(service.at("resources").at("cdxConfig").at("elements").as_int64(), 2);
    EXPECT_EQ(service.at("resources").at("cdxConfig").at("revision").as_int64(), 2);
    EXPECT_EQ(service.at("resources").at("cdxData").at("revision").as_int64(), 0);
}

TEST_F(Reading, AnElementBearsItsTag) {
    const std::string id = make(configPath, R"({"recordId":"r"})");
    const auto answer = client->get(std::string(configPath) + "/" + id);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/json");
    const std::string epoch = text(object(client->get("/CarDataExchange").body).at("epoch"));
    EXPECT_EQ(answer.header("ETag"), "\"" + epoch + "-1\"");
    EXPECT_EQ(text(object(answer.body).at("uri")), std::string(configPath) + "/" + id);
}

TEST_F(Reading, AnElementKnownAlreadyIsNotSentAgain) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    const std::string tag = client->get(path).header("ETag");
    for (const std::string& list : {tag, "\"x\", " + tag, "W/" + tag, std::string("*")}) {
        const auto answer = client->get(path, "If-None-Match: " + list + "\r\n");
        EXPECT_EQ(answer.status, 304) << list;
        EXPECT_EQ(answer.header("ETag"), tag);
        EXPECT_EQ(answer.body, "");
    }
    EXPECT_EQ(client->get(path, "If-None-Match: \"x\"\r\n").status, 200);
    client->patch(path, R"({"recordId":"changed"})");
    EXPECT_EQ(client->get(path, "If-None-Match: " + tag + "\r\n").status, 200);
}

TEST_F(Reading, HeadSaysWhatGetWouldWithoutTheBody) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    for (const std::string& target :
         {path, std::string(configPath), std::string("/CarDataExchange"), std::string("/health"),
          std::string("/registry/CarDataExchange"), std::string("/nowhere")}) {
        const auto get = client->get(target);
        const auto head = client->request("HEAD", target);
        EXPECT_EQ(head.status, get.status) << target;
        EXPECT_EQ(head.header("Content-Length"), get.header("Content-Length")) << target;
        EXPECT_EQ(head.header("ETag"), get.header("ETag")) << target;
        EXPECT_TRUE(client->tcp().received().empty()) << target;
    }
}

TEST_F(Reading, TheRegistryNamesTheAddressThatWasAsked) {
    const auto answer = client->request("GET", "/registry/CarDataExchange", {}, "Host: LocalHost:99\r\n");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, R"({"name":"CarDataExchange","uri":"http://LocalHost:99"})");
    EXPECT_EQ(client->get("/registry/Other").status, 404);
    EXPECT_EQ(client->get("/registry").status, 404);
}

TEST_F(Reading, HealthIsGoodWhileTheStoreAnswers) {
    EXPECT_EQ(client->get("/health").status, 200);
}

TEST_F(Reading, ASlashAtTheEndIsTakenAfterAResourceOnly) {
    const std::string id = make(configPath, "{}");
    EXPECT_EQ(client->get("/CarDataExchange/cdxConfig/").status, 200);
    EXPECT_EQ(client->post("/CarDataExchange/cdxConfig/", "{}").status, 201);
    for (const std::string& path : {"/CarDataExchange/cdxConfig/" + id + "/", std::string("/CarDataExchange/"),
                                    std::string("/health/"), std::string("/registry/CarDataExchange/"),
                                    std::string("/CarDataExchange/cdxConfig//"), std::string("//CarDataExchange")}) {
        EXPECT_EQ(client->get(path).status, 404) << path;
    }
}

TEST_F(Reading, NothingIsReachedByAnAddressThatIsNotItsOwn) {
    const std::string id = make(configPath, R"({"id":"a"})");
    for (const char* path :
         {"/", "/nowhere", "/CarDataExchange/cdxconfig", "/CarDataExchange/cdxData/a", "/CarDataExchange/cdxConfig/b",
          "/CarDataExchange/cdxConfig/a%2Fb", "/CarDataExchange/cdxConfig%2Fa",
          "/CarDataExchange/cdxConfig/../cdxConfig/a", "/CarDataExchange/cdxConfig/..",
          "/CarDataExchange/cdxConfig/a%00", "/%2e%2e/etc/passwd", "/session"}) {
        const auto answer = client->get(path);
        EXPECT_EQ(answer.status, 404) << path;
        EXPECT_EQ(answer.header("Content-Type"), "application/problem+json") << path;
    }
    EXPECT_EQ(client->get("/CarDataExchange/cdxConfig/%61").status, 200) << "an escaped letter is that letter";
}

TEST_F(Reading, AProblemHasItsMembers) {
    const auto problem = object(client->get("/nowhere").body);
    EXPECT_EQ(text(problem.at("title")), "Not Found");
    EXPECT_EQ(problem.at("status").as_int64(), 404);
    EXPECT_FALSE(text(problem.at("type")).empty());
    EXPECT_FALSE(text(problem.at("detail")).empty());
}

TEST_F(Reading, AQueryAnywhereButAtAListIsBad) {
    const std::string id = make(configPath, "{}");
    for (const std::string& path : {std::string("/CarDataExchange"), std::string(configPath) + "/" + id,
                                    std::string("/health"), std::string("/registry/CarDataExchange")}) {
        EXPECT_EQ(client->get(path + "?limit=1").status, 400) << path;
    }
    EXPECT_EQ(client->post(std::string(configPath) + "?limit=1", "{}").status, 400);
    EXPECT_EQ(client->get("/nowhere?limit=1").status, 404);
}

TEST_F(Reading, AMethodThatAnAddressDoesNotHaveIsToldWhichItHas) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    const auto allow = [&](const char* method, const std::string& target) {
        const auto answer = client->request(method, target);
        EXPECT_EQ(answer.status, 405) << method << " " << target;
        return answer.header("Allow");
    };
    EXPECT_EQ(allow("PUT", path), "GET, HEAD, PATCH, DELETE");
    EXPECT_EQ(allow("POST", path), "GET, HEAD, PATCH, DELETE");
    EXPECT_EQ(allow("DELETE", configPath), "GET, HEAD, POST");
    EXPECT_EQ(allow("POST", "/CarDataExchange"), "GET, HEAD");
    EXPECT_EQ(allow("POST", "/health"), "GET, HEAD");
    EXPECT_EQ(allow("OPTIONS", "/registry/CarDataExchange"), "GET, HEAD");
    EXPECT_EQ(client->request("PUT", std::string(configPath) + "/none").status, 404);
}

} // namespace
} // namespace cdxservice
