#include "ServiceFixture.h"
#include "TemporaryFile.h"

namespace cdxservice {
namespace {

class Hosts : public ServiceFixture {
protected:
    Hosts() { options.hostNames = {"car.example", "[2001:db8::1]", "2001:db8::2", "192.0.2.1"}; }
    int statusFor(const std::string& name) {
        return client->exchange("GET /health HTTP/1.1\r\nHost: " + name + "\r\n\r\n").status;
    }
};

TEST_F(Hosts, OfItsOwnAreAnswered) {
    for (const char* name :
         {"127.0.0.1", "127.0.0.1:1", "127.1.2.3", "localhost", "LOCALHOST:80", "[::1]:5", "[0:0:0:0:0:0:0:1]",
          "car.example", "Car.Example:8080", "localhost:", "[2001:db8::1]:80", "[2001:DB8:0::2]", "192.0.2.1:80"}) {
        EXPECT_EQ(statusFor(name), 200) << name;
    }
}

TEST_F(Hosts, OfOthersAreNot) {
    for (const char* name : {"", ":80", "evil", "localhost.evil", "localhost.", "127.1", "128.0.0.1", "0.0.0.0", "::1",
                             "[::2]", "[127.0.0.1]", "other.example", "car.example.evil", "[2001:db8::3]"}) {
        const int status = statusFor(name);
        EXPECT_EQ(status, std::string(name) == "::1" ? 400 : 421) << name;
    }
    EXPECT_EQ(client->exchange("GET /health HTTP/1.0\r\n\r\n").status, 421);
}

TEST_F(Hosts, AreLookedAtBeforeTheAddress) {
    EXPECT_EQ(client->exchange("GET /nowhere HTTP/1.1\r\nHost: evil\r\n\r\n").status, 421);
    EXPECT_EQ(client->exchange("POST /nowhere HTTP/1.1\r\nHost: evil\r\nOrigin: http://evil\r\n\r\n").status, 421);
}

class Origins : public ServiceFixture {
protected:
    int post(const std::string& origin, const std::string& hostName = "localhost:80") {
        return client->request("POST", configPath, "{}", std::string(jsonType) + "Host: " + hostName + "\r\n" + origin)
            .status;
    }
};

TEST_F(Origins, OfOtherPagesMayNotWrite) {
    EXPECT_EQ(post(""), 201);
    EXPECT_EQ(post("Origin: http://localhost:80\r\n"), 201);
    EXPECT_EQ(post("Origin: HTTP://LOCALHOST:80\r\n"), 201);
    for (const char* origin : {"null", "http://localhost", "https://localhost:80", "http://evil", "",
                               "http://localhost:80/", "http://localhost:80 http://evil"}) {
        EXPECT_EQ(post(std::string("Origin: ") + origin + "\r\n"), 403) << origin;
    }
    EXPECT_EQ(post("Origin: http://localhost:80\r\nOrigin: http://evil\r\n"), 403);
}

TEST_F(Origins, OfOtherPagesMayRead) {
    for (const char* method : {"GET", "HEAD"}) {
        const auto answer = client->request(method, configPath, {}, "Origin: http://evil\r\n");
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.header("Access-Control-Allow-Origin"), "") << "though no page gets to see it";
    }
}

TEST_F(Origins, OfOtherPagesMayNotListen) {
    EXPECT_NO_THROW(cdxtest::WebSocketPeer::connect(
        server->port(), "/CarDataExchange", "Origin: http://127.0.0.1:" + std::to_string(server->port()) + "\r\n"));
    const auto answer = client->exchange(
        "GET /CarDataExchange HTTP/1.1\r\n" + host() +
        "Origin: http://evil\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: cdx.v1\r\n\r\n");
    EXPECT_EQ(answer.status, 403);
}

TEST_F(Origins, AreLookedAtBeforeTheAddress) {
    EXPECT_EQ(client->request("PUT", "/nowhere", {}, "Origin: http://evil\r\n").status, 403);
}

class Tokens : public ServiceFixture {
protected:
    Tokens() { options.tokenFile = file.path(); }

    TemporaryFile file{"\n  s3cret\t\n"};
    const std::string bearer = "Authorization: Bearer s3cret\r\n";
};

TEST_F(Tokens, AreAskedForEverywhereButAtTheConsoleAndHealth) {
    for (const char* path : {"/CarDataExchange", configPath, "/nowhere", "/registry/CarDataExchange", "/session"}) {
        const auto answer = client->get(path);
        EXPECT_EQ(answer.status, 401) << path;
        EXPECT_EQ(answer.header("WWW-Authenticate"), "Bearer") << path;
    }
    EXPECT_EQ(client->get("/health").status, 200);
    EXPECT_NE(client->get("/").status, 401);
    EXPECT_NE(client->get("/console/main.js").status, 401);
    EXPECT_EQ(client->get("/CarDataExchange", bearer).status, 200);
    EXPECT_EQ(client->get("/CarDataExchange", "authorization: bearer s3cret\r\n").status, 200);
}

TEST_F(Tokens, ThatAreWrongAreNone) {
    for (const char* value :
         {"Bearer s3creT", "Bearer s3cre", "Bearer s3crett", "Bearer", "Basic s3cret", "s3cret", "Bearer s3cret x"}) {
        EXPECT_EQ(client->get("/CarDataExchange", std::string("Authorization: ") + value + "\r\n").status, 401)
            << value;
    }
    EXPECT_EQ(client->get("/CarDataExchange?token=s3cret").status, 401);
    EXPECT_EQ(client->get("/CarDataExchange?access_token=s3cret").status, 401);
}

TEST_F(Tokens, AreAskedForBeforeTheOriginAndAfterTheHost) {
    EXPECT_EQ(client->request("PUT", "/nowhere", {}, "Origin: http://evil\r\n").status, 401);
    EXPECT_EQ(client->exchange("GET /x HTTP/1.1\r\nHost: evil\r\n\r\n").status, 421);
}

TEST_F(Tokens, AreExchangedForACookie) {
    const auto answer = client->request("POST", "/session", {}, bearer);
    EXPECT_EQ(answer.status, 204);
    const std::string cookie = answer.header("Set-Cookie");
    EXPECT_NE(cookie.find("HttpOnly"), std::string::npos);
    EXPECT_NE(cookie.find("SameSite=Strict"), std::string::npos);
    EXPECT_EQ(cookie.find("Secure"), std::string::npos);
    EXPECT_EQ(cookie.find("s3cret"), std::string::npos);
    const std::string pair = "Cookie: a=b; " + cookie.substr(0, cookie.find(';')) + "\r\n";
    EXPECT_EQ(client->get("/CarDataExchange", pair).status, 200);
    EXPECT_NO_THROW(cdxtest::WebSocketPeer::connect(server->port(), "/CarDataExchange", pair));
    EXPECT_EQ(client->get("/CarDataExchange", "Cookie: cdx-session=x\r\n").status, 401);
    EXPECT_EQ(client->request("POST", "/session", {}, pair).status, 401) << "a cookie makes no cookie";
    EXPECT_EQ(client->request("POST", "/session?x=1", {}, pair).status, 401) << "and is asked about before the query";
    EXPECT_EQ(client->request("POST", "/%73ession", {}, pair + "Origin: http://evil\r\n").status, 401);
    EXPECT_EQ(client->request("PUT", "/session?x=1", {}, pair).status, 405);
    EXPECT_EQ(client->request("POST", "/session?x=1", {}, bearer).status, 400);
}

TEST_F(Tokens, AreExchangedByAPostOnly) {
    const auto answer = client->get("/session", bearer);
    EXPECT_EQ(answer.status, 405);
    EXPECT_EQ(answer.header("Allow"), "POST");
    EXPECT_EQ(client->request("POST", "/session", {}, "").status, 401);
}

TEST_F(Tokens, GuardTheChannel) {
    EXPECT_THROW(channel(), std::runtime_error);
    EXPECT_NO_THROW(cdxtest::WebSocketPeer::connect(server->port(), "/CarDataExchange", bearer));
}

class NoToken : public ServiceFixture {};

TEST_F(NoToken, HasNoSessions) {
    EXPECT_EQ(client->request("POST", "/session").status, 404);
    EXPECT_EQ(client->get("/session").status, 404);
    EXPECT_EQ(client->request("POST", "/session?x=1").status, 404);
}

TEST(Start, BeyondLoopbackNeedsAToken) {
    ServerOptions options;
    options.bindAddress = "0.0.0.0";
    EXPECT_THROW(Server(options).start(), std::runtime_error);
    const TemporaryFile file("t");
    options.tokenFile = file.path();
    EXPECT_NO_THROW(Server(options).start());
}

TEST(Start, FailsWithATokenFileThatHoldsNone) {
    ServerOptions options;
    options.tokenFile = "/nonexistent/token";
    EXPECT_THROW(Server(options).start(), std::runtime_error);
    const TemporaryFile file(" \n");
    options.tokenFile = file.path();
    EXPECT_THROW(Server(options).start(), std::runtime_error);
}

TEST(Start, FailsWithATokenThatNoRequestCanBear) {
    for (const char* content : {"one\ntwo\n", "one\rtwo", "one\x01", "\x7f"}) {
        const TemporaryFile file(content);
        ServerOptions options;
        options.tokenFile = file.path();
        EXPECT_THROW(Server(options).start(), std::runtime_error) << content;
    }
    const TemporaryFile file("one two\r\n");
    ServerOptions options;
    options.tokenFile = file.path();
    EXPECT_NO_THROW(Server(options).start());
}

TEST(Start, FailsWithAnAddressThatIsNone) {
    ServerOptions options;
    options.bindAddress = "here";
    EXPECT_THROW(Server(options).start(), std::runtime_error);
}

TEST(Start, FailsWithAHostNameThatNoRequestCanBear) {
    for (const char* name : {"", "car.example:80", "http://car.example", "car example", "[2001:db8::1]:80", "[here]"}) {
        ServerOptions options;
        options.hostNames = {name};
        EXPECT_THROW(Server(options).start(), std::runtime_error) << name;
    }
}

} // namespace
} // namespace cdxservice
