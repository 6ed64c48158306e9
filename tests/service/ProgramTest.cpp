#include "Program.h"

#include <support/HttpTestClient.h>

#include <gtest/gtest.h>

namespace {

using cdxservice::Program;

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
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--port", "x"},
                                               {"--port", "65536"},
                                               {"--nonsense"},
                                               {"--tls-cert", "/nonexistent"},
                                               {"--token-file", "/nonexistent"},
                                               {"--max-connections", "0"},
                                               {"--bind", "nowhere"}}) {
        Program program(arguments);
        EXPECT_EQ(program.restOfOutput(), "") << arguments[0];
        EXPECT_NE(program.errors(), "") << arguments[0];
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
