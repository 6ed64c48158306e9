#include "CdxBaseXalClient.h"
#include "Documents.h"

#include <support/ComesTrue.h>
#include <support/PrivateMember.h>
#include <support/ProcessState.h>
#include <support/xal/LogCapture.h>
#include <xalutil/TaskExecutor.h>

#include <gmock/gmock.h>

#include <future>
#include <pthread.h>

using Executor = std::shared_ptr<xalutil::SingleThreadAsyncTaskExecutor>;
CDX_REVEAL(TaskExecutorOfBase, zepclient::CdxBaseXalClient, m_firstExecutor, Executor);
CDX_REVEAL(HttpExecutorOfBase, zepclient::CdxBaseXalClient, m_secondExecutor, Executor);

namespace {

/// The name of the thread that runs the executor's tasks.
std::string threadOf(const Executor& executor) {
    std::promise<std::string> name;
    executor->execute([&name] {
        char buffer[16] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof buffer);
        name.set_value(buffer);
    });
    return name.get_future().get();
}

/// The bootstrap with the framework's own classes. Nothing is listened to, so nothing is connected to.
class BootstrapThreadsTest : public testing::Test {
protected:
    ~BootstrapThreadsTest() override { zepclient::CdxBaseXalClient::getInstance()->Stop(); }

    cdxtest::LogCapture log{-1};
    oru::Json::Value registryDocument = cdxtest::documentOf(R"({"mode":"static"})");
    oru::Json::Value serviceDocument = cdxtest::documentOf(R"({"serverBaseUri":"http://127.0.0.1:1"})");
    std::shared_ptr<zepclient::CdxBaseXalClient> client =
        zepclient::CdxXalClient::CreateCdxBaseRasiClient(registryDocument, serviceDocument);
};

TEST_F(BootstrapThreadsTest, TheTaskExecutorIsHeldFirstAndTheHttpExecutorSecond) {
    EXPECT_EQ("cdxXalExecutor", threadOf((*client).*reveal(cdxtest::TaskExecutorOfBase())));
    EXPECT_EQ(std::string("cdxHTTPXalExecutor").substr(0, 15),
              threadOf((*client).*reveal(cdxtest::HttpExecutorOfBase())));
}

TEST_F(BootstrapThreadsTest, StopEndsBothThreads) {
    threadOf((*client).*reveal(cdxtest::TaskExecutorOfBase()));
    threadOf((*client).*reveal(cdxtest::HttpExecutorOfBase()));
    EXPECT_TRUE(cdxtest::hasThread("cdxXalExecutor"));
    EXPECT_TRUE(cdxtest::hasThread("cdxHTTPXalExecu"));

    client->Stop();

    EXPECT_TRUE(cdxtest::comesTrue([] { return !cdxtest::hasThread("cdxXalExecutor"); }));
    EXPECT_TRUE(cdxtest::comesTrue([] { return !cdxtest::hasThread("cdxHTTPXalExecu"); }));
}

TEST_F(BootstrapThreadsTest, StopFromATaskOfTheTaskExecutorReturnsAndEndsBoth) {
    const std::weak_ptr<xalutil::SingleThreadAsyncTaskExecutor> task = (*client).*reveal(cdxtest::TaskExecutorOfBase());
    std::promise<void> stopped;

    task.lock()->execute([&] {
        client->Stop();
        stopped.set_value();
    });

    EXPECT_EQ(std::future_status::ready, stopped.get_future().wait_for(std::chrono::seconds(20)));
}

TEST_F(BootstrapThreadsTest, WhatATaskThrowsIsPrintedUnderTheExecutorsFacility) {
    testing::internal::CaptureStdout();
    const auto& executor = (*client).*reveal(cdxtest::TaskExecutorOfBase());

    executor->execute([] { throw std::runtime_error("from the task"); });
    threadOf(executor);

    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_THAT(output, testing::HasSubstr("ERROR: CDX XAL TASK Logger: "));
    EXPECT_THAT(output, testing::HasSubstr("from the task"));
}

} // namespace
