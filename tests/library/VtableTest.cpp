#include <support/VtableLayout.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Slots = std::vector<std::string>;

const char document[] = "(Json::Value)";
const char text[] = "(std::string)";
const char constText[] = "(std::string const&)";

std::string qualified(const std::string& scope, const std::string& operation) {
    return scope + "::" + operation;
}

/// A class's two destructors.
Slots destructors(const std::string& scope, const std::string& name) {
    const std::string destructor = scope + "::~" + name + "()";
    return {destructor, destructor + " [deleting]"};
}

Slots operator+(Slots slots, const Slots& more) {
    slots.insert(slots.end(), more.begin(), more.end());
    return slots;
}

Slots of(const std::string& scope, const Slots& operations) {
    Slots slots;
    for (const std::string& operation : operations)
        slots.push_back(qualified(scope, operation));
    return slots;
}

std::string withText(const std::string& operation) {
    return operation + text;
}

/// The access interface's operations behind the destructor.
Slots accessOperations() {
    return {"Start()",
            "Stop()",
            "AssignCallback(std::shared_ptr<zepclient::CdxXalCallback>)",
            withText("SubscribeClientStateObject"),
            withText("SubscribeCdxDataObject"),
            "SubscribeCdxDataObject()",
            std::string("CreateNewCdxMasterControlElement") + document,
            std::string("UpdateMasterControlElement") + document,
            std::string("CreateNewCdxConfigElement") + document,
            std::string("UpdateConfigElement") + document,
            std::string("CreateNewCdxTriggerElement") + document,
            std::string("UpdateTriggerElement") + document};
}

std::string differenceOf(const std::string& className, const Slots& expected) {
    return cdxtest::differenceFrom(expected, cdxtest::vtableOf(className));
}

TEST(VtableTest, FacadeHasTheAccessInterfacesThirteenSlots) {
    const std::string facade = "zepclient::CdxXalInterfaceImpl";

    EXPECT_EQ("", differenceOf(facade, destructors(facade, "CdxXalInterfaceImpl") + of(facade, accessOperations())));
}

TEST(VtableTest, AccessObjectHasTheFrameworkClientsSlotsAndThenTheAccessInterfaces) {
    const std::string access = "zepclient::CdxXalAccess";
    const auto slots = cdxtest::vtableOf(access);
    const Slots primary =
        Slots{access + "::start()"} + destructors(access, "CdxXalAccess") + of(access, accessOperations());
    ASSERT_LT(primary.size(), slots.size());
    EXPECT_EQ("", cdxtest::differenceFrom(primary, {slots.begin(), slots.begin() + static_cast<long>(primary.size())}));

    // Behind it, after two words of its own, the table through which the facade calls.
    Slots secondary;
    for (const std::string& slot : destructors(access, "CdxXalAccess") + of(access, accessOperations()))
        secondary.push_back("non-virtual thunk to " + slot);
    EXPECT_EQ("",
              cdxtest::differenceFrom(secondary, {slots.begin() + static_cast<long>(primary.size()) + 2, slots.end()}));
}

TEST(VtableTest, CallbackTranslatorHasItsThirteenSlots) {
    const std::string callback = "zepclient::CdxXalCallback";
    const std::string result = "(bool, Json::Value)";
    const std::string status = "(bool, std::string)";
    const std::string service = "xalobjects_GX2::CardataexchangeService::";
    const auto vectorOf = [&](const std::string& element) {
        return "(std::vector<" + service + element + ", std::allocator<" + service + element + "> >)";
    };

    EXPECT_EQ("",
              differenceOf(
                  callback,
                  destructors(callback, "CdxXalCallback") +
                      of(callback, {"CdxClientStateAvailablity(bool)",
                                    "CdxClientStateObjectNotification" + vectorOf("CdxClientState"),
                                    "CdxClientStateUpdateNotification(" + service + "CdxClientState)",
                                    "CdxMasterControlElementCreateStatus" + result, "CdxMasterCtlUpdateStatus" + status,
                                    "CdxDataObjectNotification" + vectorOf("CdxData"),
                                    "CdxDataUpdateNotification(std::shared_ptr<" + service + "CdxData const>)",
                                    "CdxConfigCreateStatus" + result, "CdxConfigUpdateStatus" + status,
                                    "CdxTriggerCreateStatus" + result, "CdxTriggerUpdateStatus" + status,
                                    withText("CDXClientDisconnected")})));
}

TEST(VtableTest, ConfigurationManagerHasTheFrameworksSlotsAndItsDefaultLast) {
    const std::string manager = "zepclient::CdxXalConfigManager";
    Slots getters;
    for (const char* getter : {"getServerBaseUri", "getServerBasePath", "getSeparatorAfterResource",
                               "isServiceConfigurationKnown", "getWatchdogPingInterval", "getWatchdogPongTimeout"})
        getters.push_back(std::string(getter) + constText + " const");
    const std::string assembled = std::string("xal::IConfigManager::getServiceConfiguration") + constText + " const";

    EXPECT_EQ("", differenceOf(manager,
                               destructors(manager, "CdxXalConfigManager") + of(manager, getters) + Slots{assembled}));
}

TEST(VtableTest, LoggerHasTheFrameworksSlots) {
    const std::string logger = "zepclient::CdxMoRoLogger";
    Slots operations;
    for (const char* writer : {"trace", "debug", "info", "warning", "error", "system"})
        operations.push_back(std::string(writer) + constText);
    for (const char* query : {"isTrace", "isDebug", "isInfo", "isWarning", "isError", "isSystem"})
        operations.push_back(std::string(query) + "() const");
    operations.push_back(std::string("getSubFacilityLogger") + constText + " const");

    EXPECT_EQ("", differenceOf(logger, destructors(logger, "CdxMoRoLogger") + of(logger, operations)));
}

TEST(VtableTest, LoggerFactoryHasOneOperation) {
    const std::string factory = "zepclient::CdxMoRoLoggerFactory";

    EXPECT_EQ("", differenceOf(factory, destructors(factory, "CdxMoRoLoggerFactory") +
                                            of(factory, {std::string("createLogger") + constText})));
}

TEST(VtableTest, BaseClientAndClientsHandlersHaveADestructorOnly) {
    EXPECT_EQ("", differenceOf("zepclient::CdxBaseXalClient",
                               destructors("zepclient::CdxBaseXalClient", "CdxBaseXalClient")));
    EXPECT_EQ("", differenceOf("zepclient::MoroClientCallback",
                               destructors("zepclient::MoroClientCallback", "MoroClientCallback")));
}

TEST(VtableTest, ClientHasTheThreadsSlotsWithItsOwnBody) {
    const std::string client = "zepclient::CdxMoroClient";

    EXPECT_EQ("",
              differenceOf(client, destructors(client, "CdxMoroClient") +
                                       Slots{"oru::Thread::start()", client + "::run()", "oru::Thread::stop()",
                                             "oru::Thread::exit()", "oru::Thread::join()", "oru::Thread::detach()"}));
}

} // namespace
