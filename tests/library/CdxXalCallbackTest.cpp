#include "CdxXalCallback.h"

#include "Elements.h"

#include <support/VtableLayout.h>
#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using cdxtest::element;
using cdxtest::sharedElement;
using testing::ElementsAre;
using zepclient::CdxClientStateObject;
using zepclient::CdxDataObject;
using zepclient::CdxXalCallback;

class CdxXalCallbackTest : public testing::Test {
protected:
    CdxXalCallbackTest() { log.clear(); } // the constructor's own line has its own test

    cdxtest::LogCapture log;
    CdxXalCallback callback;

private:
    void SetUp() override { log.clear(); }
};

CdxClientStateObject stateNamed(const std::string& canonicalName) {
    return element<CdxClientStateObject>(R"({"id":"i-)" + canonicalName + R"(","canonicalName":")" + canonicalName +
                                         "\"}");
}

TEST_F(CdxXalCallbackTest, ConstructorTracesAndLeavesEverySlotEmpty) {
    const CdxXalCallback fresh;

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalCallback::CdxXalCallback: "));
    EXPECT_FALSE(fresh.clientStateCallback);
    EXPECT_FALSE(fresh.masterCtlCreateCallback);
    EXPECT_FALSE(fresh.masterCtlUpdateCallback);
    EXPECT_FALSE(fresh.dataSubscriptionCallback);
    EXPECT_FALSE(fresh.dataUpdateCallback);
    EXPECT_FALSE(fresh.configCreateCallback);
    EXPECT_FALSE(fresh.configUpdateCallback);
    EXPECT_FALSE(fresh.triggerCreateCallback);
    EXPECT_FALSE(fresh.triggerUpdateCallback);
    EXPECT_FALSE(fresh.clientDisconnectCallback);
}

TEST_F(CdxXalCallbackTest, AvailabilityIsLoggedWhateverItsFlag) {
    callback.CdxClientStateAvailablity(false);
    callback.CdxClientStateAvailablity(true);

    const std::string line = "5 CdxXalCallback::CdxClientStateAvailablity CDX Client State is available now";
    EXPECT_THAT(log.outlines(), ElementsAre(line, line));
}

TEST_F(CdxXalCallbackTest, OfSeveralClientStatesOnlyTheFirstIsPassedOn) {
    std::vector<std::string> told;
    callback.clientStateCallback = [&](CdxClientStateObject state) {
        told.push_back(state.getCanonicalName().getValue());
    };

    callback.CdxClientStateObjectNotification({stateNamed("a"), stateNamed("b"), stateNamed("c")});

    EXPECT_THAT(told, ElementsAre("a"));
    EXPECT_THAT(log.outlines(),
                ElementsAre("5 CdxXalCallback::CdxClientStateObjectNotification SIZE OF CLIENT STATE OBJECT VECTOR = 3",
                            "7 CdxXalCallback::CdxClientStateObjectNotification: CANONICAL NAME = a",
                            "7 CdxXalCallback::CdxClientStateObjectNotification: UUID = i-a",
                            "5 CdxXalCallback::CdxClientStateObjectNotification Going For Callback to Moro Client"));
}

TEST_F(CdxXalCallbackTest, AnEmptyClientStateListEndsWithItsSize) {
    callback.clientStateCallback = [](CdxClientStateObject) { FAIL() << "nothing to pass on"; };

    callback.CdxClientStateObjectNotification({});

    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxXalCallback::CdxClientStateObjectNotification "
                                            "SIZE OF CLIENT STATE OBJECT VECTOR = 0"));
}

TEST_F(CdxXalCallbackTest, AClientStateWithoutIdAndCanonicalNameIsInvalidInTheLog) {
    callback.CdxClientStateObjectNotification({element<CdxClientStateObject>("{}")});

    EXPECT_THAT(log.outlines(7),
                ElementsAre("7 CdxXalCallback::CdxClientStateObjectNotification: CANONICAL NAME = invalid",
                            "7 CdxXalCallback::CdxClientStateObjectNotification: UUID = invalid"));
}

TEST_F(CdxXalCallbackTest, WithoutASlotAClientStateListIsStillLoggedToTheEnd) {
    callback.CdxClientStateObjectNotification({stateNamed("a")});

    EXPECT_EQ("5 CdxXalCallback::CdxClientStateObjectNotification Going For Callback to Moro Client",
              log.outlines().back());
}

TEST_F(CdxXalCallbackTest, AClientStateUpdateGoesToTheSameSlot) {
    std::vector<std::string> told;
    callback.CdxClientStateUpdateNotification(stateNamed("dropped"));
    callback.clientStateCallback = [&](CdxClientStateObject state) {
        told.push_back(state.getCanonicalName().getValue());
    };

    callback.CdxClientStateUpdateNotification(stateNamed("a"));

    EXPECT_THAT(told, ElementsAre("a"));
    const std::string trace = "7 CdxXalCallback::CdxClientStateUpdateNotification: ";
    EXPECT_THAT(log.outlines(), ElementsAre(trace, trace));
}

/// The operations that report a flag: what each logs, and that it reaches its slot with both arguments.
struct StatusCase {
    std::string name;
    std::function<void(CdxXalCallback&, bool)> report;
    std::function<void(CdxXalCallback&, std::vector<std::string>&)> bind;
    std::function<std::vector<std::string>(bool isBound, const char* flag)> lines;
};

std::ostream& operator<<(std::ostream& stream, const StatusCase& status) {
    return stream << status.name;
}

using CreateSlot = std::function<void(bool, oru::Json::Value)> CdxXalCallback::*;
using UpdateSlot = std::function<void(bool, std::string)> CdxXalCallback::*;

auto bindCreate(CreateSlot slot) {
    return [slot](CdxXalCallback& callback, std::vector<std::string>& told) {
        callback.*slot = [&told](bool isCreated, oru::Json::Value document) {
            told.push_back((isCreated ? "1 " : "0 ") + document["name"].asString());
        };
    };
}

auto bindUpdate(UpdateSlot slot) {
    return [slot](CdxXalCallback& callback, std::vector<std::string>& told) {
        callback.*
            slot = [&told](bool isUpdated, std::string name) { told.push_back((isUpdated ? "1 " : "0 ") + name); };
    };
}

oru::Json::Value documentNamed(const char* name) {
    oru::Json::Value document;
    document["name"] = name;
    return document;
}

const StatusCase statusCases[] = {
    {"MasterControlCreate",
     [](CdxXalCallback& c, bool flag) { c.CdxMasterControlElementCreateStatus(flag, documentNamed("A")); },
     bindCreate(&CdxXalCallback::masterCtlCreateCallback),
     [](bool isBound, const char* flag) {
         const std::string head = "5 CdxXalCallback::CdxMasterControlElementCreateStatus ";
         std::vector<std::string> lines{head + "XAL CDX MASTER CONTROL CREATE ELEMENT STATUS CODE = " + flag};
         if (isBound)
             lines.push_back(head + "Now Master Control Callback on MORO CLient");
         return lines;
     }},
    {"MasterControlUpdate", [](CdxXalCallback& c, bool flag) { c.CdxMasterCtlUpdateStatus(flag, "A"); },
     bindUpdate(&CdxXalCallback::masterCtlUpdateCallback),
     [](bool, const char* flag) {
         return std::vector<std::string>{
             std::string("5 CdxXalCallback::CdxMasterCtlUpdateStatus XAL Cdx Master Control Update Status ") + flag};
     }},
    {"ConfigCreate", [](CdxXalCallback& c, bool flag) { c.CdxConfigCreateStatus(flag, documentNamed("A")); },
     bindCreate(&CdxXalCallback::configCreateCallback),
     [](bool, const char*) {
         return std::vector<std::string>{
             "5 CdxXalCallback::CdxConfigCreateStatus Cdx Config Element created, callback occured"};
     }},
    {"ConfigUpdate", [](CdxXalCallback& c, bool flag) { c.CdxConfigUpdateStatus(flag, "A"); },
     bindUpdate(&CdxXalCallback::configUpdateCallback),
     [](bool, const char* flag) {
         return std::vector<std::string>{
             std::string("5 CdxXalCallback::CdxConfigUpdateStatus Cdx Config update status = ") + flag};
     }},
    {"TriggerCreate", [](CdxXalCallback& c, bool flag) { c.CdxTriggerCreateStatus(flag, documentNamed("A")); },
     bindCreate(&CdxXalCallback::triggerCreateCallback),
     [](bool, const char*) {
         return std::vector<std::string>{
             "5 CdxXalCallback::CdxTriggerCreateStatus Cdx Trigger Element created, callback occured = "};
     }},
    {"TriggerUpdate", [](CdxXalCallback& c, bool flag) { c.CdxTriggerUpdateStatus(flag, "A"); },
     bindUpdate(&CdxXalCallback::triggerUpdateCallback),
     [](bool, const char*) {
         return std::vector<std::string>{
             "5 CdxXalCallback::CdxTriggerUpdateStatus Cdx Trigger Element updated, callback occured"};
     }},
};

class CdxXalCallbackStatusTest : public testing::TestWithParam<StatusCase> {
protected:
    CdxXalCallback callback;
    cdxtest::LogCapture log;
    std::vector<std::string> told;
};

INSTANTIATE_TEST_SUITE_P(All, CdxXalCallbackStatusTest, testing::ValuesIn(statusCases),
                         [](const auto& status) { return status.param.name; });

TEST_P(CdxXalCallbackStatusTest, IsLoggedAndReachesItsSlotWithTheFlag) {
    GetParam().bind(callback, told);

    GetParam().report(callback, true);
    EXPECT_EQ(GetParam().lines(true, "1"), log.outlines());
    log.clear();
    GetParam().report(callback, false);
    EXPECT_EQ(GetParam().lines(true, "0"), log.outlines());

    EXPECT_THAT(told, ElementsAre("1 A", "0 A"));
}

TEST_P(CdxXalCallbackStatusTest, WithoutASlotIsOnlyLogged) {
    GetParam().report(callback, true);

    EXPECT_EQ(GetParam().lines(false, "1"), log.outlines());
}

TEST_F(CdxXalCallbackTest, OfSeveralDataMessagesOnlyTheFirstIsPassedOn) {
    std::vector<std::string> told;
    callback.dataSubscriptionCallback = [&](CdxDataObject data) { told.push_back(data.getId().getValue()); };

    callback.CdxDataObjectNotification(
        {element<CdxDataObject>(R"({"id":"1","cdxClientDataReport":["x"]})"), element<CdxDataObject>(R"({"id":"2"})")});

    EXPECT_THAT(told, ElementsAre("1"));
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalCallback::CdxDataObjectNotification: ",
                            "7 CdxXalCallback::CdxDataObjectNotification: SIZE OF CDX DATA VECTOR = 2",
                            "5 CdxXalCallback::CdxDataObjectNotification CDX Client Data report is available"));
}

TEST_F(CdxXalCallbackTest, ADataMessageWithoutAReportIsPassedOnWithoutTheReportsLine) {
    int told = 0;
    callback.dataSubscriptionCallback = [&](CdxDataObject) { ++told; };

    callback.CdxDataObjectNotification({element<CdxDataObject>("{}")});

    EXPECT_EQ(1, told);
    EXPECT_EQ(2U, log.outlines().size());
}

TEST_F(CdxXalCallbackTest, AnEmptyDataListWritesTwoLinesAndCallsNothing) {
    callback.dataSubscriptionCallback = [](CdxDataObject) { FAIL() << "nothing to pass on"; };

    callback.CdxDataObjectNotification({});

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalCallback::CdxDataObjectNotification: ",
                            "7 CdxXalCallback::CdxDataObjectNotification: SIZE OF CDX DATA VECTOR = 0"));
}

TEST_F(CdxXalCallbackTest, WithoutASlotADataListsReportIsNotLogged) {
    callback.CdxDataObjectNotification({element<CdxDataObject>(R"({"cdxClientDataReport":["x"]})")});

    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalCallback::CdxDataObjectNotification: ",
                            "7 CdxXalCallback::CdxDataObjectNotification: SIZE OF CDX DATA VECTOR = 1"));
}

TEST_F(CdxXalCallbackTest, ADataUpdatesReportIsLoggedEntryByEntryAndThenJoined) {
    const auto data = sharedElement<CdxDataObject>(R"({"cdxClientDataReport":["aa","b","c"]})");
    std::shared_ptr<const CdxDataObject> told;
    callback.dataUpdateCallback = [&](std::shared_ptr<const CdxDataObject> element) { told = element; };

    callback.CdxDataUpdateNotification(data);

    EXPECT_EQ(data, told);
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalCallback::CdxDataUpdateNotification: ",
                            "5 CdxXalCallback::CdxDataUpdateNotification Updated CDX Client Data report is available",
                            "7 CdxXalCallback::CdxDataUpdateNotification: Size of TEMP CDX DATA VECTOR = 3",
                            "7 CdxXalCallback::CdxDataUpdateNotification: Size of CDX DATA = 2",
                            "5 CdxXalCallback::CdxDataUpdateNotification aa",
                            "5 CdxXalCallback::CdxDataUpdateNotification b",
                            "5 CdxXalCallback::CdxDataUpdateNotification c",
                            "7 CdxXalCallback::CdxDataUpdateNotification: Callback before Data Report = aabc"));
}

TEST_F(CdxXalCallbackTest, AnEmptyReportHasAFirstEntryOfSizeZeroInTheLog) {
    callback.dataUpdateCallback = [](std::shared_ptr<const CdxDataObject>) {};

    callback.CdxDataUpdateNotification(sharedElement<CdxDataObject>(R"({"cdxClientDataReport":[]})"));

    EXPECT_THAT(log.outlines(7),
                ElementsAre("7 CdxXalCallback::CdxDataUpdateNotification: ",
                            "7 CdxXalCallback::CdxDataUpdateNotification: Size of TEMP CDX DATA VECTOR = 0",
                            "7 CdxXalCallback::CdxDataUpdateNotification: Size of CDX DATA = 0",
                            "7 CdxXalCallback::CdxDataUpdateNotification: Callback before Data Report = "));
}

TEST_F(CdxXalCallbackTest, WithoutASlotADataUpdateIsOnlyTraced) {
    callback.CdxDataUpdateNotification(sharedElement<CdxDataObject>(R"({"cdxClientDataReport":["a"]})"));

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalCallback::CdxDataUpdateNotification: "));
}

TEST_F(CdxXalCallbackTest, ADisconnectGoesToItsSlotWithTheName) {
    std::vector<std::string> told;
    callback.clientDisconnectCallback = [&](std::string name) { told.push_back(name); };

    callback.CDXClientDisconnected("A");

    EXPECT_THAT(told, ElementsAre("A"));
    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxXalCallback::CDXClientDisconnected Cdx Service is disconnected = A"));
}

TEST_F(CdxXalCallbackTest, WithoutASlotADisconnectIsOnlyLogged) {
    callback.CDXClientDisconnected("A");

    EXPECT_THAT(log.outlines(), ElementsAre("5 CdxXalCallback::CDXClientDisconnected Cdx Service is disconnected = A"));
}

TEST_F(CdxXalCallbackTest, ASlotMayEmptyItselfWhileItRuns) {
    auto alive = std::make_shared<int>(7);
    const std::weak_ptr<int> observer = alive;
    bool wasAlive = false;
    callback.clientDisconnectCallback = [this, alive, observer, &wasAlive](std::string) {
        callback.clientDisconnectCallback = nullptr;
        wasAlive = !observer.expired();
    };
    alive.reset();

    callback.CDXClientDisconnected("A");

    EXPECT_TRUE(wasAlive);
    EXPECT_TRUE(observer.expired());
}

/// A slot, and an operation that calls it.
struct SlotCase {
    std::string name;
    std::function<void(CdxXalCallback&)> letThrow;
    std::function<void(CdxXalCallback&)> call;
};

std::ostream& operator<<(std::ostream& stream, const SlotCase& slot) {
    return stream << slot.name;
}

template <class Slot>
SlotCase slotCase(const char* name, Slot CdxXalCallback::*slot, std::function<void(CdxXalCallback&)> call) {
    const auto letThrow = [slot](CdxXalCallback& callback) {
        callback.*slot = [](auto&&...) { throw std::domain_error("from the slot"); };
    };
    return {name, letThrow, std::move(call)};
}

const oru::Json::Value empty(oru::Json::objectValue);

const SlotCase slotCases[] = {
    slotCase("ClientState", &CdxXalCallback::clientStateCallback,
             [](CdxXalCallback& c) { c.CdxClientStateObjectNotification({stateNamed("a")}); }),
    slotCase("ClientStateUpdate", &CdxXalCallback::clientStateCallback,
             [](CdxXalCallback& c) { c.CdxClientStateUpdateNotification(stateNamed("a")); }),
    slotCase("MasterControlCreate", &CdxXalCallback::masterCtlCreateCallback,
             [](CdxXalCallback& c) { c.CdxMasterControlElementCreateStatus(true, empty); }),
    slotCase("MasterControlUpdate", &CdxXalCallback::masterCtlUpdateCallback,
             [](CdxXalCallback& c) { c.CdxMasterCtlUpdateStatus(true, "A"); }),
    slotCase("DataSubscription", &CdxXalCallback::dataSubscriptionCallback,
             [](CdxXalCallback& c) { c.CdxDataObjectNotification({element<CdxDataObject>("{}")}); }),
    slotCase("DataUpdate", &CdxXalCallback::dataUpdateCallback,
             [](CdxXalCallback& c) {
                 c.CdxDataUpdateNotification(sharedElement<CdxDataObject>(R"({"cdxClientDataReport":["a"]})"));
             }),
    slotCase("ConfigCreate", &CdxXalCallback::configCreateCallback,
             [](CdxXalCallback& c) { c.CdxConfigCreateStatus(true, empty); }),
    slotCase("ConfigUpdate", &CdxXalCallback::configUpdateCallback,
             [](CdxXalCallback& c) { c.CdxConfigUpdateStatus(true, "A"); }),
    slotCase("TriggerCreate", &CdxXalCallback::triggerCreateCallback,
             [](CdxXalCallback& c) { c.CdxTriggerCreateStatus(true, empty); }),
    slotCase("TriggerUpdate", &CdxXalCallback::triggerUpdateCallback,
             [](CdxXalCallback& c) { c.CdxTriggerUpdateStatus(true, "A"); }),
    slotCase("ClientDisconnect", &CdxXalCallback::clientDisconnectCallback,
             [](CdxXalCallback& c) { c.CDXClientDisconnected("A"); }),
};

class CdxXalCallbackSlotTest : public testing::TestWithParam<SlotCase> {
protected:
    cdxtest::LogCapture log;
    CdxXalCallback callback;
};

INSTANTIATE_TEST_SUITE_P(All, CdxXalCallbackSlotTest, testing::ValuesIn(slotCases),
                         [](const auto& slot) { return slot.param.name; });

TEST_P(CdxXalCallbackSlotTest, WhatItThrowsPassesToTheCaller) {
    GetParam().letThrow(callback);

    EXPECT_THROW(GetParam().call(callback), std::domain_error);
}

TEST(CdxXalCallbackLayoutTest, SlotsAreInTheirOrder) {
    const CdxXalCallback callback;
    const std::vector<const void*> inOrder{&callback.clientStateCallback,     &callback.masterCtlCreateCallback,
                                           &callback.masterCtlUpdateCallback, &callback.dataSubscriptionCallback,
                                           &callback.dataUpdateCallback,      &callback.configCreateCallback,
                                           &callback.configUpdateCallback,    &callback.triggerCreateCallback,
                                           &callback.triggerUpdateCallback,   &callback.clientDisconnectCallback};

    EXPECT_TRUE(std::is_sorted(inOrder.begin(), inOrder.end()));
    EXPECT_EQ(sizeof(void*) + inOrder.size() * sizeof(std::function<void()>), sizeof(CdxXalCallback));
}

} // namespace
