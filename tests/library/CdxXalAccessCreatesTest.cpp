#include "AccessFixture.h"

#include <json/json.h>

#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zepclient::CdxXalAccess;
using Write = void (CdxXalAccess::*)(oru::Json::Value);

class CdxXalAccessCreatesTest : public cdxtest::AccessFixture {
protected:
    void write(Write operation, const std::string& json) { ((*access).*operation)(cdxtest::documentOf(json)); }
    std::string sentBody() const { return connection->nextRequest().body->toString(); }
};

/// One of the three creates.
struct Create {
    std::string operation;
    Write create;
    std::string resource;
    std::string status;
    std::string filler;
    std::string startNotice;
    std::string successNotice;
    std::string error;
};

std::ostream& operator<<(std::ostream& stream, const Create& create) {
    return stream << create.operation;
}

class CreateTest : public CdxXalAccessCreatesTest, public testing::WithParamInterface<Create> {
protected:
    std::string head(const char* level) const { return std::string(level) + " CdxXalAccess::" + GetParam().operation; }
    void create(const std::string& json) { write(GetParam().create, json); }
};

INSTANTIATE_TEST_SUITE_P(
    All, CreateTest,
    testing::Values(Create{"CreateNewCdxConfigElement", &CdxXalAccess::CreateNewCdxConfigElement, "cdxConfig",
                           "CdxConfigCreateStatus", "PopulateConfigDescFromJson", "Creating new cdxconfig element for ",
                           "Created new XAL element for Cdx Config", "Error in creating cdx Config element"},
                    Create{"CreateNewCdxTriggerElement", &CdxXalAccess::CreateNewCdxTriggerElement, "cdxTrigger",
                           "CdxTriggerCreateStatus", "PopulateTriggerDescFromJson",
                           "Creating new cdx Trigger  element for ", "Created new XAL element for Cdx Trigger",
                           "Error in creating cdx Trigger element"},
                    Create{"CreateNewCdxMasterControlElement", &CdxXalAccess::CreateNewCdxMasterControlElement,
                           "cdxMasterControls", "CdxMasterControlElementCreateStatus", "PopulateMasterCtlDescFromJson",
                           "Creating new cdxmaster control element for ",
                           "Created new XAL element for CdxMaster Control",
                           "Error in creating cdxmaster Control element"}),
    [](const auto& create) { return create.param.resource; });

TEST_P(CreateTest, SendsTheElementUnderItsPrefixedName) {
    connect();

    create(R"({"name":"A","elementId":3})");

    EXPECT_THAT(journal(), ElementsAre("create " + GetParam().resource));
    EXPECT_EQ("CarDataExchange", connection->nextRequest().serviceName);
    EXPECT_EQ(R"({"name":"RefreshField^true>>A","elementId":3})", sentBody());
    EXPECT_THAT(log.outlines(), ElementsAre(head("7") + ": ", "7 CdxXalAccess::" + GetParam().filler + ": ",
                                            head("5") + " " + GetParam().startNotice + "A"));
    EXPECT_THAT(callback->calls, IsEmpty());
}

TEST_P(CreateTest, ReportsSuccessWithTheNewElementsIdAndUri) {
    connect();
    create(R"({"name":"A"})");
    clearRecords();

    connection->answer(201, R"({"id":"7","uri":"/u/7","name":"whatever"})");

    EXPECT_THAT(callback->calls, ElementsAre(GetParam().status + R"( 1 {"id":"7","name":"A","uri":"/u/7"})"));
    EXPECT_THAT(log.outlines(), ElementsAre(head("5") + "[] " + GetParam().successNotice));
}

TEST_P(CreateTest, ReportsARefusalWithTheNameOnly) {
    connect();
    create(R"({"name":"A","id":"7"})");
    clearRecords();

    connection->answer(422);

    EXPECT_THAT(callback->calls, ElementsAre(GetParam().status + R"( 0 {"name":"A"})"));
    EXPECT_THAT(log.outlines(), ElementsAre(head("3") + "[]: " + GetParam().error));
}

TEST_P(CreateTest, ReportsARequestThatThrewAsARefusal) {
    connect();
    create(R"({"name":"A"})");
    clearRecords();

    connection->answerWithException("create element failed");

    EXPECT_THAT(callback->calls, ElementsAre(GetParam().status + R"( 0 {"name":"A"})"));
}

TEST_P(CreateTest, WithoutANameSendsThePrefixAndReportsAnEmptyName) {
    connect();

    create("{}");
    EXPECT_EQ(R"({"name":"RefreshField^true>>"})", sentBody());
    EXPECT_EQ(head("5") + " " + GetParam().startNotice, log.outlines(5).back());

    connection->answer(201, R"({"id":"7","uri":"/u"})");
    EXPECT_THAT(callback->calls, ElementsAre(GetParam().status + R"( 1 {"id":"7","name":"","uri":"/u"})"));
}

TEST_P(CreateTest, AnElementThatComesBackWithoutIdOrUriThrowsAndIsNotReported) {
    connect();
    create(R"({"name":"A"})");
    create(R"({"name":"B"})");

    for (const char* answer : {R"({"uri":"/u"})", R"({"id":"7"})"}) {
        try {
            connection->answer(201, answer);
            ADD_FAILURE() << "nothing was thrown for " << answer;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ("getValue called on uninitialized Optional", error.what());
        }
    }
    EXPECT_THAT(callback->calls, IsEmpty());
}

TEST_P(CreateTest, WithoutACallbackTheOutcomeIsOnlyLogged) {
    connect();
    create(R"({"name":"A"})");
    create(R"({"name":"B"})");
    access->AssignCallback(nullptr);
    clearRecords();

    connection->answer(201, R"({"id":"7","uri":"/u"})");
    connection->answer(500);

    EXPECT_THAT(log.outlines(),
                ElementsAre(head("5") + "[] " + GetParam().successNotice, head("3") + "[]: " + GetParam().error));
}

TEST_P(CreateTest, TheOutcomeGoesToTheCallbackAssignedWhenItArrives) {
    connect();
    create(R"({"name":"A"})");
    const auto later = std::make_shared<cdxtest::RecordingCallback>();
    access->AssignCallback(later);

    connection->answer(500);

    EXPECT_THAT(callback->calls, IsEmpty());
    EXPECT_THAT(later->calls, ElementsAre(GetParam().status + R"( 0 {"name":"A"})"));
}

TEST_P(CreateTest, ADocumentThatCannotBeConvertedThrowsToTheCallerAndSendsNothing) {
    connect();

    EXPECT_THROW(create(R"({"name":["A"]})"), Json::Exception);

    EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(CdxXalAccessCreatesTest, AFailedCreateCanBeReportedFromOutside) {
    access->AssignCallback(callback);

    access->reportCreateFailed(&zepclient::CdxXalCallback::CdxTriggerCreateStatus, "A");

    EXPECT_THAT(callback->calls, ElementsAre(R"(CdxTriggerCreateStatus 0 {"name":"A"})"));
}

} // namespace
