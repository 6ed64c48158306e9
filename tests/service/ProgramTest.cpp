#include "Program.h"

#include <support/HttpTestClient.h>

#include <gtest/gtest.h>

namespace {

using cdxservice::Program;

void expectNoStart(const Program& program, const std::string& arguments) {
    const std::string line = program.line();
    EXPECT_EQ(line, "") << arguments;
    if (!line.empty()) {
        program.signal(SIGTERM);
    }
}

TEST(Program, SaysInOneLineWhereItListens) {
    Program program({"--port", "0"});
    const std::string line = program.line();
    const std::string begin = "cdx-service: listening on http://127.0.0.1:";
    ASSERT_EQ(line.substr(0, begin.size()), begin);
    const int port = std::atoi(line.c_str() + begin.size());
    EXPECT_EQ(cdxtest::HttpTestClient(static_cast<std::uint16_t>(port)).get("/health").status, 200);
    program.signal(SIGTERM);
    EXPECT_EQ(program.restOfOutput(), "");
    EXPECT_EQ(program.wait(), 0);
}

TEST(Program, EndsWellOnInterrupt) {
    Program program({"--port", "0"});
    program.line();
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 0);
}

TEST(Program, RefusesToStartBeyondLoopbackWithoutAToken) {
    Program program({"--port", "0", "--bind", "0.0.0.0"});
    EXPECT_EQ(program.restOfOutput(), "");
    EXPECT_NE(program.errors().find("token"), std::string::npos);
    EXPECT_GT(program.wait(), 0);
}

TEST(Program, SaysWhatIsWrongWithItsOptions) {
    struct Case {
        std::vector<std::string> arguments;
        const char* said;
    };
    for (const Case& each : std::vector<Case>{{{"--port", "x"}, "x not in range 0 to 65535"},
                                              {{"--port", "65536"}, "65536 not in range 0 to 65535"},
                                              {{"--port", "-1"}, "-1 not in range 0 to 65535"},
                                              {{"--nonsense"}, "--nonsense"},
                                              {{"--tls-cert", "/nonexistent"}, "--tls-cert requires --tls-key"},
                                              {{"--token-file", "/nonexistent"}, "token file cannot be read: /nonex"},
                                              {{"--token-file", "/"}, "token file cannot be read: /"},
                                              {{"--max-connections", "0"}, "0 not in range 1 to"},
                                              {{"--host", "car.example:80"}, "without a port: car.example:80"},
                                              {{"--bind", "nowhere"}, "such as 127.0.0.1: nowhere"}}) {
        Program program(each.arguments);
        expectNoStart(program, each.said);
        const std::string errors = program.errors();
        EXPECT_NE(errors.find(each.said), std::string::npos) << errors;
        EXPECT_GT(program.wait(), 0) << each.said;
    }
}

TEST(Program, TakesNoEmptyOptionForOneThatIsNotThere) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--token-file", ""},
                                               {"--tls-cert", "", "--tls-key", ""},
                                               {"--port", ""},
                                               {"--bind", ""},
                                               {"--host", ""},
                                               {"--host=", "--port", "0"}}) {
        Program program(arguments);
        expectNoStart(program, arguments[0]);
        EXPECT_NE(program.errors().find(arguments[0].substr(0, 6)), std::string::npos) << arguments[0];
        EXPECT_GT(program.wait(), 0) << arguments[0];
    }
}

TEST(Program, TakesSeveralHostNames) {
    Program program({"--port", "0", "--host", "one.example", "--host", "two.example"});
    const std::uint16_t port = program.port();
    for (const char* name : {"one.example", "two.example"}) {
        EXPECT_EQ(
            cdxtest::HttpTestClient(port).request("GET", "/health", {}, std::string("Host: ") + name + "\r\n").status,
            200);
    }
}

} // namespace
