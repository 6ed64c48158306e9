#include "AccessFixture.h"

#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zepclient::CdxXalAccess;
using Write = void (CdxXalAccess::*)(oru::Json::Value);

class CdxXalAccessUpdatesTest : public cdxtest::AccessFixture {
protected:
    void write(Write operation, const std::string& json) { ((*access).*operation)(cdxtest::documentOf(json)); }
    std::string sentBody() const { return connection->nextRequest().body->toString(); }
};

/// One of the three updates.
struct Update {
    std::string operation;
    Write update;
    std::string resource;
    std::string status;
    std::string document;
    std::string body;
    std::vector<std::string> lines; ///< level, ":" where there is a line number, blank, message
    std::string success;            ///< with the status code 200
    std::string failure;            ///< without the status code
};

std::ostream& operator<<(std::ostream& stream, const Update& update) {
    return stream << update.operation;
}

class UpdateTest : public CdxXalAccessUpdatesTest, public testing::WithParamInterface<Update> {
protected:
    std::string head(const char* level) const { return std::string(level) + " CdxXalAccess::" + GetParam().operation; }
    void update(const std::string& json) { write(GetParam().update, json); }
};

const char masterControl[] = R"({"name":"A","eventTicket":"e","dataDeliveryResult":2,"backendChannelControl":4})";

INSTANTIATE_TEST_SUITE_P(
    All, UpdateTest,
    testing::Values(
        Update{"UpdateConfigElement",
               &CdxXalAccess::UpdateConfigElement,
               "cdxConfig",
               "CdxConfigUpdateStatus",
               R"({"id":"7","name":"A"})",
               R"({"name":"RefreshField^false>>A"})",
               {"7:", R"(7: Updating config value = {"id":"7","name":"A"})", "7!PopulateConfigDescFromJson"},
               "UPDATED CDX Config Record STATUS CODE = 200",
               "Failed to Update the CDX Config Record  STATUS CODE = "},
        Update{"UpdateTriggerElement",
               &CdxXalAccess::UpdateTriggerElement,
               "cdxTrigger",
               "CdxTriggerUpdateStatus",
               R"({"id":"7","name":"A"})",
               R"({"name":"RefreshField^false>>A"})",
               {"7:", "7!PopulateTriggerDescFromJson", "5 Populated CFG Element UU ID = 7"},
               "UPDATED CDX Trigger Record STATUS CODE = 200",
               "Failed to Update the CDX Trigger Record  STATUS CODE = "},
        Update{"UpdateMasterControlElement",
               &CdxXalAccess::UpdateMasterControlElement,
               "cdxMasterControls",
               "CdxMasterCtlUpdateStatus",
               masterControl,
               R"({"name":"RefreshField^false>>A","backendChannelControl":"stopProtocolViolation",)"
               R"("dataDeliveryResult":"failOffline","eventTicket":"e"})",
               {"7:",
                R"(5 Updating value = {"backendChannelControl":4,"dataDeliveryResult":2,"eventTicket":"e","name":"A"})",
                "7!PopulateMasterCtlDescFromJson", "7: Populated value  EvID = e",
                "7: Populated value  Data Delivery = 2", "7: Populated value  Backend = 4",
                "7: Populated value  Name = RefreshField^false>>A"},
               "UPDATED CDX Master Control",
               "Failed to Update the Master Control object STATUS CODE = "}),
    [](const auto& update) { return update.param.resource; });

TEST_P(UpdateTest, SendsTheElementUnderItsPrefixedNameAndLogsOnTheWay) {
    connect();

    update(GetParam().document);

    EXPECT_EQ(GetParam().body, sentBody());
    std::vector<std::string> expected;
    for (const std::string& line : GetParam().lines) {
        const std::string level = line.substr(0, 1);
        if (line[1] == '!')
            expected.push_back(level + " CdxXalAccess::" + line.substr(2) + ": ");
        else
            expected.push_back(head(level.c_str()) + line.substr(1) + (line.size() == 2 ? " " : ""));
    }
    EXPECT_EQ(expected, log.outlines());
    EXPECT_THAT(callback->calls, IsEmpty());
}

TEST_P(UpdateTest, IsAddressedByTheDocumentsId) {
    connect();
    oru::Json::Value document = cdxtest::documentOf(GetParam().document);
    document["id"] = "7";

    ((*access).*GetParam().update)(document);

    EXPECT_THAT(journal(), ElementsAre("update " + GetParam().resource + "/7"));
}

TEST_P(UpdateTest, ReportsSuccessWithTheBareName) {
    connect();
    update(GetParam().document);
    clearRecords();

    connection->answer(200);

    EXPECT_THAT(callback->calls, ElementsAre(GetParam().status + " 1 A"));
    EXPECT_THAT(log.outlines(), ElementsAre(head("5") + "[] " + GetParam().success));
}

TEST_P(UpdateTest, ReportsARefusalWithTheBareNameAndLogsItsStatusAtLevelOne) {
    connect();
    update(GetParam().document);
    clearRecords();

    connection->answer(404);

    EXPECT_THAT(callback->calls, ElementsAre(GetParam().status + " 0 A"));
    EXPECT_THAT(log.outlines(), ElementsAre(head("1") + "[]: " + GetParam().failure + "404"));
}

TEST_P(UpdateTest, BeforeTheServiceIsConnectedWritesItsTraceAndNothingElse) {
    access->AssignCallback(callback);

    update(GetParam().document);

    EXPECT_THAT(log.outlines(), ElementsAre(head("7") + ": "));
    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(callback->calls, IsEmpty());
}

TEST_P(UpdateTest, WithoutACallbackTheOutcomeIsOnlyLogged) {
    connect();
    update(GetParam().document);
    update(GetParam().document);
    access->AssignCallback(nullptr);
    clearRecords();

    connection->answer(200);
    connection->answer(500);

    EXPECT_THAT(log.outlines(),
                ElementsAre(head("5") + "[] " + GetParam().success, head("1") + "[]: " + GetParam().failure + "500"));
}

TEST_P(UpdateTest, WithLoggingOffIsStillSent) {
    connect();
    log.setLevel(-1);

    update(GetParam().document);

    EXPECT_EQ(GetParam().body, sentBody());
    EXPECT_THAT(log.outlines(), IsEmpty());
}

TEST_F(CdxXalAccessUpdatesTest, AnUpdateOfARecordOrATriggerWithoutANameSendsThePrefixAndReportsAnEmptyName) {
    connect();

    write(&CdxXalAccess::UpdateConfigElement, R"({"id":"7"})");
    EXPECT_EQ(R"({"name":"RefreshField^false>>"})", sentBody());
    connection->answer(200);
    write(&CdxXalAccess::UpdateTriggerElement, R"({"id":"7"})");
    EXPECT_EQ(R"({"name":"RefreshField^false>>"})", sentBody());
    connection->answer(200);

    EXPECT_THAT(callback->calls, ElementsAre("CdxConfigUpdateStatus 1 ", "CdxTriggerUpdateStatus 1 "));
}

/// A key that an update must give while the level that logs it is enabled.
struct LoggedKey {
    std::string key;
    Write update;
    int level;
};

std::ostream& operator<<(std::ostream& stream, const LoggedKey& logged) {
    return stream << logged.key;
}

class LoggedKeyTest : public CdxXalAccessUpdatesTest, public testing::WithParamInterface<LoggedKey> {
protected:
    oru::Json::Value documentWithoutKey() const {
        oru::Json::Value document = cdxtest::documentOf(masterControl);
        document["id"] = "7";
        document.removeMember(GetParam().key);
        return document;
    }
};

INSTANTIATE_TEST_SUITE_P(All, LoggedKeyTest,
                         testing::Values(LoggedKey{"id", &CdxXalAccess::UpdateTriggerElement, 5},
                                         LoggedKey{"eventTicket", &CdxXalAccess::UpdateMasterControlElement, 7},
                                         LoggedKey{"dataDeliveryResult", &CdxXalAccess::UpdateMasterControlElement, 7},
                                         LoggedKey{"backendChannelControl", &CdxXalAccess::UpdateMasterControlElement,
                                                   7},
                                         LoggedKey{"name", &CdxXalAccess::UpdateMasterControlElement, 7}),
                         [](const auto& logged) { return logged.param.key; });

TEST_P(LoggedKeyTest, AnUpdateWithoutItThrowsBeforeAnythingIsSentWhileTheLevelIsEnabled) {
    connect();
    log.setLevel(GetParam().level);

    try {
        ((*access).*GetParam().update)(documentWithoutKey());
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("getValue called on uninitialized Optional", error.what());
    }
    EXPECT_THAT(journal(), IsEmpty());
}

TEST_P(LoggedKeyTest, AnUpdateWithoutItIsSentBelowTheLevel) {
    connect();
    log.setLevel(GetParam().level - 1);

    ((*access).*GetParam().update)(documentWithoutKey());

    EXPECT_EQ(1U, connection->unansweredCount());
}

TEST_F(CdxXalAccessUpdatesTest, ADocumentsCommentsAreNotInTheLog) {
    connect();
    log.setLevel(7);
    const auto document = cdxtest::documentOf("// first\n" + std::string(masterControl) + "/* last */");
    ASSERT_THAT(document.toStyledString(), testing::AllOf(HasSubstr("first"), HasSubstr("last")));

    access->UpdateConfigElement(document);
    access->UpdateMasterControlElement(document);

    const std::string text = R"({"backendChannelControl":4,"dataDeliveryResult":2,"eventTicket":"e","name":"A"})";
    EXPECT_THAT(log.outlines(),
                testing::IsSupersetOf({"7 CdxXalAccess::UpdateConfigElement: Updating config value = " + text,
                                       "5 CdxXalAccess::UpdateMasterControlElement Updating value = " + text}));
}

TEST_F(CdxXalAccessUpdatesTest, AMasterControlUpdateWithoutANameSendsNone) {
    connect();
    log.setLevel(5);

    write(&CdxXalAccess::UpdateMasterControlElement, R"({"id":"7","eventTicket":"e"})");

    EXPECT_EQ(R"({"eventTicket":"e"})", sentBody());
    connection->answer(200);
    EXPECT_THAT(callback->calls, ElementsAre("CdxMasterCtlUpdateStatus 1 "));
}

TEST_F(CdxXalAccessUpdatesTest, OutcomesFindTheirRequestsWhateverTheOrderOfTheKinds) {
    connect();

    write(&CdxXalAccess::CreateNewCdxConfigElement, R"({"name":"A"})");
    write(&CdxXalAccess::UpdateConfigElement, R"({"name":"B","id":"7"})");
    write(&CdxXalAccess::CreateNewCdxTriggerElement, R"({"name":"C"})");
    connection->answer(500);
    connection->answer(200);
    connection->answer(201, R"({"id":"8","uri":"/u"})");

    EXPECT_THAT(callback->calls, ElementsAre(R"(CdxConfigCreateStatus 0 {"name":"A"})", "CdxConfigUpdateStatus 1 B",
                                             R"(CdxTriggerCreateStatus 1 {"id":"8","name":"C","uri":"/u"})"));
}

TEST_F(CdxXalAccessUpdatesTest, ADeleteIsAddressedByTheDocumentsIdAndReadsNothingElse) {
    connect();

    write(&CdxXalAccess::DeleteConfig, R"({"id":"7","name":"A","elementId":"not a number"})");

    EXPECT_THAT(journal(), ElementsAre("remove cdxConfig/7"));
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalAccess::DeleteConfig: ",
                            "5 CdxXalAccess::DeleteConfig Clearing cdxconfig element at server side for "));
}

TEST_F(CdxXalAccessUpdatesTest, ADeleteWithoutAnIdIsSentWithoutOne) {
    connect();

    write(&CdxXalAccess::DeleteConfig, "{}");

    EXPECT_THAT(journal(), ElementsAre("remove cdxConfig"));
}

TEST_F(CdxXalAccessUpdatesTest, ADeletesOutcomeIsOnlyLogged) {
    connect();
    write(&CdxXalAccess::DeleteConfig, R"({"id":"7"})");
    write(&CdxXalAccess::DeleteConfig, R"({"id":"8"})");
    clearRecords();

    connection->answer(204);
    connection->answer(404);

    EXPECT_THAT(
        log.outlines(),
        ElementsAre("5 CdxXalAccess::DeleteConfig[] Cleared CDX Config  element",
                    "3 CdxXalAccess::DeleteConfig[]: Error in deleting cdx Config element, response code = 404"));
    EXPECT_THAT(callback->calls, IsEmpty());
}

} // namespace
