#include "MoroClientCallback.h"

#include "Documents.h"

#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zepclient::MoroClientCallback;

using Calls = std::vector<std::string>;

/// One of the nine handlers: how it is set, how it is called, and what it then was called with.
struct Executor {
    std::string name;
    bool isTraced;
    std::function<void(MoroClientCallback&, Calls&)> set;
    std::function<void(MoroClientCallback&)> execute;
    std::string call;
};

std::ostream& operator<<(std::ostream& stream, const Executor& executor) {
    return stream << executor.name;
}

void note(Calls& calls, const oru::Json::Value& document) {
    calls.push_back(cdxtest::textOf(document));
}

template <class... Arguments>
auto setting(std::function<void(Arguments...)> MoroClientCallback::*handler) {
    return [handler](MoroClientCallback& callback, Calls& calls) {
        callback.*handler = [&calls](Arguments... arguments) {
            oru::Json::Value all(oru::Json::arrayValue);
            (all.append(oru::Json::Value(arguments)), ...);
            note(calls, all);
        };
    };
}

const Executor executors[] = {
    {"executeCdxClientHandler", true, setting(&MoroClientCallback::m_cdxClientHandler),
     [](MoroClientCallback& c) { c.executeCdxClientHandler("doc"); }, R"(["doc"])"},
    {"executeCdxMasterControlCreateHandler", false, setting(&MoroClientCallback::m_cdxMasterControlCreateHandler),
     [](MoroClientCallback& c) { c.executeCdxMasterControlCreateHandler(true, "id"); }, R"([true,"id"])"},
    {"executeCdxMasterControlUpdateHandler", false, setting(&MoroClientCallback::m_cdxMasterControlUpdateHandler),
     [](MoroClientCallback& c) { c.executeCdxMasterControlUpdateHandler(true); }, "[true]"},
    {"executeCdxDataSubHandler", true, setting(&MoroClientCallback::m_cdxDataSubHandler),
     [](MoroClientCallback& c) { c.executeCdxDataSubHandler("doc"); }, R"(["doc"])"},
    {"executeCdxDataUpdateHandler", true, setting(&MoroClientCallback::m_cdxDataUpdateHandler),
     [](MoroClientCallback& c) { c.executeCdxDataUpdateHandler("doc"); }, R"(["doc"])"},
    {"executeCdxConfigCreateHandler", true, setting(&MoroClientCallback::m_cdxConfigCreateHandler),
     [](MoroClientCallback& c) { c.executeCdxConfigCreateHandler(true, "doc"); }, R"([true,"doc"])"},
    {"executeCdxConfigUpdateHandler", true, setting(&MoroClientCallback::m_cdxConfigUpdateHandler),
     [](MoroClientCallback& c) { c.executeCdxConfigUpdateHandler(false); }, "[false]"},
    {"executeCdxTriggerCreateHandler", true, setting(&MoroClientCallback::m_cdxTriggerCreateHandler),
     [](MoroClientCallback& c) { c.executeCdxTriggerCreateHandler(false, "doc"); }, R"([false,"doc"])"},
    {"executeCdxTriggerUpdateHandler", true, setting(&MoroClientCallback::m_cdxTriggerUpdateHandler),
     [](MoroClientCallback& c) { c.executeCdxTriggerUpdateHandler(true); }, "[true]"},
};

class ExecutorTest : public testing::TestWithParam<Executor> {
protected:
    Calls expectedLines() const {
        return GetParam().isTraced ? Calls{"7 MoroClientCallback::" + GetParam().name + ": "} : Calls{};
    }

    MoroClientCallback callback;
    cdxtest::LogCapture log;
    Calls calls;
};

INSTANTIATE_TEST_SUITE_P(All, ExecutorTest, testing::ValuesIn(executors),
                         [](const auto& executor) { return executor.param.name; });

TEST_P(ExecutorTest, CallsItsHandlerWithItsArguments) {
    GetParam().set(callback, calls);

    GetParam().execute(callback);

    EXPECT_THAT(calls, ElementsAre(GetParam().call));
    EXPECT_EQ(expectedLines(), log.outlines());
}

TEST_P(ExecutorTest, WithoutAHandlerDoesNothingButTrace) {
    for (const Executor& other : executors) {
        if (other.name != GetParam().name)
            other.set(callback, calls);
    }

    GetParam().execute(callback);

    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(expectedLines(), log.outlines());
}

TEST(MoroClientCallbackTest, ConstructionTracesAndLeavesEveryHandlerEmpty) {
    const cdxtest::LogCapture log;
    MoroClientCallback callback;

    EXPECT_THAT(log.outlines(), ElementsAre("7 MoroClientCallback::MoroClientCallback: "));
    for (const Executor& executor : executors)
        EXPECT_NO_THROW(executor.execute(callback));
}

TEST(MoroClientCallbackTest, AHandlerMayReplaceItselfWhileItRuns) {
    MoroClientCallback callback;
    Calls calls;
    const std::string longName(100, 'x');
    callback.m_cdxConfigUpdateHandler = [&callback, &calls, longName](bool) {
        callback.m_cdxConfigUpdateHandler = [&calls](bool) { calls.push_back("second"); };
        calls.push_back("first " + longName);
    };

    callback.executeCdxConfigUpdateHandler(true);
    callback.executeCdxConfigUpdateHandler(true);

    EXPECT_THAT(calls, ElementsAre("first " + longName, "second"));
}

TEST(MoroClientCallbackLayoutTest, HandlersAreInTheirOrder) {
    const MoroClientCallback callback;
    const std::vector<const void*> inOrder{&callback.m_cdxClientHandler,
                                           &callback.m_cdxMasterControlCreateHandler,
                                           &callback.m_cdxMasterControlUpdateHandler,
                                           &callback.m_cdxDataSubHandler,
                                           &callback.m_cdxDataUpdateHandler,
                                           &callback.m_cdxConfigCreateHandler,
                                           &callback.m_cdxConfigUpdateHandler,
                                           &callback.m_cdxTriggerCreateHandler,
                                           &callback.m_cdxTriggerUpdateHandler};

    EXPECT_TRUE(std::is_sorted(inOrder.begin(), inOrder.end()));
    EXPECT_EQ(sizeof(void*) + inOrder.size() * sizeof(std::function<void()>), sizeof(MoroClientCallback));
}

} // namespace
