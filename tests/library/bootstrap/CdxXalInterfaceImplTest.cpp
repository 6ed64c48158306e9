#include "CdxXalInterfaceImpl.h"

#include "AccessFixture.h"
#include "BootstrapFixture.h"

#include <support/PrivateMember.h>

#include <json/json.h>

#include <functional>
#include <new>
#include <stdexcept>

using Facade = zepclient::CdxXalInterfaceImpl;
CDX_REVEAL(FacadeBaseClient, Facade, m_baseXalClient, std::shared_ptr<zepclient::CdxBaseXalClient>);
CDX_REVEAL(FacadeAccess, Facade, m_cdxXalAccess, std::shared_ptr<zepclient::CdxXalAccess>);

namespace {

using cdxtest::documentOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

class CdxXalInterfaceImplTest : public cdxtest::BootstrapFixture {
protected:
    void makeFacade() {
        facade = std::make_unique<Facade>(registryDocument, serviceDocument);
        clearRecords();
    }
    /// A facade whose access object could not be made.
    void makeFacadeWithoutAccess() {
        framework().onSetRequestHeaders = [] { throw std::runtime_error("no services"); };
        makeFacade();
    }
    void connect() {
        facade->AssignCallback(callback);
        facade->Start();
        connection = framework().connect();
        callback->calls.clear();
        clearRecords();
    }
    const std::shared_ptr<zepclient::CdxXalAccess>& access() const {
        return (*facade).*reveal(cdxtest::FacadeAccess());
    }

    std::shared_ptr<cdxtest::RecordingCallback> callback = std::make_shared<cdxtest::RecordingCallback>();
    std::unique_ptr<Facade> facade;
    std::shared_ptr<cdxtest::RecordingConnection> connection;
};

// Construction

TEST_F(CdxXalInterfaceImplTest, ConstructionBootstrapsTheFrameworkFromTheTwoDocumentsInTheirOrder) {
    facade = std::make_unique<Facade>(registryDocument, serviceDocument);

    EXPECT_THAT(journal(),
                IsSupersetOf({R"(make registry "registry" "http://r:1" "CdxMoroClient", INFO: its loggers: )",
                              "its service is at http://s:2"}));
    EXPECT_TRUE(access());
    EXPECT_EQ(zepclient::CdxBaseXalClient::getInstance(), (*facade).*reveal(cdxtest::FacadeBaseClient()));
    EXPECT_THAT(log.outlinesOf("CdxXalInterfaceImpl::CdxXalInterfaceImpl"), IsEmpty());
}

TEST_F(CdxXalInterfaceImplTest, NothingIsListenedToBeforeStart) {
    facade = std::make_unique<Facade>(registryDocument, serviceDocument);

    EXPECT_THAT(journal(), testing::Not(testing::Contains("listen CarDataExchange")));
}

TEST_F(CdxXalInterfaceImplTest, ADocumentThatCannotBeReadThrowsOutOfTheConstructor) {
    serviceDocument = documentOf(R"({"timeOut":"soon"})");

    EXPECT_THROW(Facade(registryDocument, serviceDocument), Json::Exception);

    EXPECT_THAT(log.outlines(3), IsEmpty());
}

TEST_F(CdxXalInterfaceImplTest, AFailureToMakeTheAccessObjectIsLoggedOnceAndLeavesTheFacadeWithoutOne) {
    framework().onSetRequestHeaders = [] { throw std::runtime_error("no services"); };

    facade = std::make_unique<Facade>(registryDocument, serviceDocument);

    EXPECT_THAT(log.outlines(3), ElementsAre("3 CdxXalInterfaceImpl::CdxXalInterfaceImpl: "
                                             "Error while creating the Cdx Xal Accsor"));
    EXPECT_FALSE(access());
    EXPECT_TRUE((*facade).*reveal(cdxtest::FacadeBaseClient()));
}

TEST_F(CdxXalInterfaceImplTest, AFailureThatIsNoStandardExceptionLeavesTheConstructor) {
    framework().onSetRequestHeaders = [] { throw 7; };

    EXPECT_THROW(Facade(registryDocument, serviceDocument), int);

    EXPECT_THAT(log.outlines(3), IsEmpty());
}

// Starting, stopping, the end

TEST_F(CdxXalInterfaceImplTest, StartIsTheFrameworkClientsStart) {
    makeFacade();

    facade->Start();

    EXPECT_THAT(journal(), ElementsAre("listen CarDataExchange"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalAccess::start: "));
}

TEST_F(CdxXalInterfaceImplTest, StopResetsTheSubscriptionsBeforeItStopsTheBaseClient) {
    makeFacade();
    connect();

    facade->Stop();

    const auto entries = journal();
    ASSERT_LE(3U, entries.size());
    EXPECT_EQ("unsubscribe cdxClientStates", entries[0]);
    EXPECT_EQ("release cdxClientStates", entries[1]);
    EXPECT_EQ("unsubscribe all", entries[2]);
    EXPECT_THAT(entries, IsSupersetOf({"stop cdxXalExecutor", "close"}));
    EXPECT_EQ("7 CdxXalInterfaceImpl::Stop: ", log.outlines().at(0));
    EXPECT_EQ("7 CdxXalAccess::ResetsSubscriptions: ", log.outlines().at(1));
    EXPECT_EQ("7 CdxBaseXalClient::Stop: ", log.outlines().at(2));
}

TEST_F(CdxXalInterfaceImplTest, AnEntryTraceIsTheSignatureTheLineAndABlank) {
    makeFacade();

    facade->Stop();

    const cdxtest::LogLine trace = log.lines().at(0);
    EXPECT_EQ("virtual void zepclient::CdxXalInterfaceImpl::Stop()", trace.signature);
    EXPECT_GT(trace.number, 0);
    EXPECT_EQ("", trace.message);
}

TEST_F(CdxXalInterfaceImplTest, StopReleasesNothingOfTheFacadesOwn) {
    makeFacade();

    facade->Stop();

    EXPECT_TRUE(access());
    EXPECT_TRUE((*facade).*reveal(cdxtest::FacadeBaseClient()));
}

TEST_F(CdxXalInterfaceImplTest, StopWithoutABaseClientStillResetsTheSubscriptions) {
    makeFacade();
    connect();
    ((*facade).*reveal(cdxtest::FacadeBaseClient())).reset();

    facade->Stop();

    EXPECT_THAT(journal(), ElementsAre("unsubscribe cdxClientStates", "release cdxClientStates"));
}

TEST_F(CdxXalInterfaceImplTest, TheEndReleasesTheAccessObjectBeforeTheBaseClient) {
    makeFacade();
    connect();
    const auto journalOfRelease = framework().journal;
    (*facade).*reveal(cdxtest::FacadeBaseClient()) = std::shared_ptr<zepclient::CdxBaseXalClient>(
        zepclient::CdxBaseXalClient::getInstance().get(),
        [journalOfRelease](zepclient::CdxBaseXalClient*) { journalOfRelease->add("base client released"); });

    facade.reset();

    EXPECT_THAT(journal(), ElementsAre("close", "release cdxClientStates", "base client released"));
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalInterfaceImpl::~CdxXalInterfaceImpl: "));
}

TEST_F(CdxXalInterfaceImplTest, AssigningTheCallbackIsTracedAndForwarded) {
    makeFacade();

    facade->AssignCallback(callback);
    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalInterfaceImpl::AssignCallback: "));

    facade->Start();
    framework().connect();
    EXPECT_THAT(callback->calls, ElementsAre("CdxClientStateAvailablity 1"));
}

// Subscriptions

TEST_F(CdxXalInterfaceImplTest, SubscriptionsAreForwardedAndReturnTheAccessObjectsResult) {
    makeFacade();
    EXPECT_FALSE(facade->SubscribeClientStateObject("1"));
    EXPECT_FALSE(facade->SubscribeCdxDataObject("2"));
    EXPECT_FALSE(facade->SubscribeCdxDataObject());
    connect();

    EXPECT_TRUE(facade->SubscribeClientStateObject("1"));
    EXPECT_TRUE(facade->SubscribeCdxDataObject("2"));
    EXPECT_TRUE(facade->SubscribeCdxDataObject());

    EXPECT_THAT(journal(), ElementsAre("subscribe cdxClientStates/1", "subscribe cdxData/2", "subscribe cdxData"));
    EXPECT_THAT(log.outlinesOf("CdxXalInterfaceImpl::SubscribeClientStateObject"),
                ElementsAre("7 CdxXalInterfaceImpl::SubscribeClientStateObject: "));
    EXPECT_THAT(log.outlinesOf("CdxXalInterfaceImpl::SubscribeCdxDataObject"), IsEmpty());
}

// Writes

struct Write {
    std::string name;
    std::function<void(Facade&, oru::Json::Value)> write;
    std::string request;
    bool isTraced;
    std::string refusal; ///< what a write without a service reports of a document named A; empty: nothing
};

std::ostream& operator<<(std::ostream& stream, const Write& write) {
    return stream << write.name;
}

const Write writes[] = {
    {"CreateNewCdxMasterControlElement", &Facade::CreateNewCdxMasterControlElement, "create cdxMasterControls/7", true,
     R"(CdxMasterControlElementCreateStatus 0 {"name":"A"})"},
    {"UpdateMasterControlElement", &Facade::UpdateMasterControlElement, "update cdxMasterControls/7", false, ""},
    {"CreateNewCdxConfigElement", &Facade::CreateNewCdxConfigElement, "create cdxConfig/7", false,
     R"(CdxConfigCreateStatus 0 {"name":"A"})"},
    {"UpdateConfigElement", &Facade::UpdateConfigElement, "update cdxConfig/7", false, ""},
    {"CreateNewCdxTriggerElement", &Facade::CreateNewCdxTriggerElement, "create cdxTrigger/7", false,
     R"(CdxTriggerCreateStatus 0 {"name":"A"})"},
    {"UpdateTriggerElement", &Facade::UpdateTriggerElement, "update cdxTrigger/7", false, ""},
    {"DeleteConfig", &Facade::DeleteConfig, "remove cdxConfig/7", false, R"(CdxConfigCreateStatus 0 {"name":"A"})"},
};

class FacadeWriteTest : public CdxXalInterfaceImplTest, public testing::WithParamInterface<Write> {
protected:
    void write() {
        GetParam().write(*facade, documentOf(R"({"id":"7","name":"A","eventTicket":"e","dataDeliveryResult":0,)"
                                             R"("backendChannelControl":0})"));
    }
    std::vector<std::string> ownLines() const { return log.outlinesOf("CdxXalInterfaceImpl::" + GetParam().name); }
    std::string head(const char* level) const {
        return std::string(level) + " CdxXalInterfaceImpl::" + GetParam().name + ": ";
    }
    std::vector<std::string> trace() const {
        return GetParam().isTraced ? std::vector<std::string>{head("7")} : std::vector<std::string>{};
    }
};

INSTANTIATE_TEST_SUITE_P(All, FacadeWriteTest, testing::ValuesIn(writes),
                         [](const auto& write) { return write.param.name; });

TEST_P(FacadeWriteTest, IsForwardedToTheAccessObject) {
    makeFacade();
    connect();

    write();

    EXPECT_THAT(journal(), ElementsAre(GetParam().request));
    EXPECT_EQ(trace(), ownLines());
}

TEST_P(FacadeWriteTest, WithoutAnAccessObjectLogsOneErrorAndDoesNothing) {
    makeFacadeWithoutAccess();

    write();

    auto expected = trace();
    expected.push_back(head("3") + "There is no access to the service, the request is dropped");
    EXPECT_EQ(expected, log.outlines());
    EXPECT_THAT(journal(), IsEmpty());
}

TEST_P(FacadeWriteTest, WithoutAServiceIsReportedAsARefusalIfItIsNoUpdate) {
    makeFacade();
    facade->AssignCallback(callback);
    log.clear();

    write();

    if (GetParam().refusal.empty()) {
        EXPECT_THAT(callback->calls, IsEmpty());
        EXPECT_THAT(log.outlines(3), IsEmpty());
    } else {
        EXPECT_THAT(callback->calls, ElementsAre(GetParam().refusal));
        EXPECT_THAT(log.outlines(3),
                    ElementsAre(head("3") + "The service was never connected, the request has failed"));
    }
    EXPECT_THAT(journal(), IsEmpty());
}

TEST_P(FacadeWriteTest, WithoutAServiceAndACallbackIsOnlyLogged) {
    makeFacade();

    EXPECT_NO_THROW(write());

    EXPECT_THAT(log.outlines(3), testing::SizeIs(GetParam().refusal.empty() ? 0 : 1));
}

TEST_F(CdxXalInterfaceImplTest, WithoutAServiceADocumentWithoutANameIsReportedUnderTheEmptyName) {
    makeFacade();
    facade->AssignCallback(callback);

    facade->CreateNewCdxConfigElement(documentOf("{}"));

    EXPECT_THAT(callback->calls, ElementsAre(R"(CdxConfigCreateStatus 0 {"name":""})"));
}

// Without an access object

TEST_F(CdxXalInterfaceImplTest, WithoutAnAccessObjectStartStopAndTheCallbackDoNothing) {
    makeFacadeWithoutAccess();

    facade->Start();
    facade->AssignCallback(callback);
    facade->Stop();

    EXPECT_THAT(journal(), IsEmpty()) << "the base client is not stopped either";
    EXPECT_THAT(log.outlines(),
                ElementsAre("7 CdxXalInterfaceImpl::AssignCallback: ", "7 CdxXalInterfaceImpl::Stop: "));
}

TEST_F(CdxXalInterfaceImplTest, WithoutAnAccessObjectSubscriptionsReturnFalse) {
    makeFacadeWithoutAccess();

    EXPECT_FALSE(facade->SubscribeClientStateObject("1"));
    EXPECT_FALSE(facade->SubscribeCdxDataObject("1"));
    EXPECT_FALSE(facade->SubscribeCdxDataObject());

    EXPECT_THAT(log.outlines(), ElementsAre("7 CdxXalInterfaceImpl::SubscribeClientStateObject: "));
}

TEST_F(CdxXalInterfaceImplTest, WithoutAnAccessObjectTheEndReleasesTheBaseClient) {
    makeFacadeWithoutAccess();
    const auto base = (*facade).*reveal(cdxtest::FacadeBaseClient());
    const auto holders = base.use_count();

    facade.reset();

    EXPECT_EQ(holders - 1, base.use_count());
}

// Layout

TEST_F(CdxXalInterfaceImplTest, MembersAreInTheirOrder) {
    makeFacade();
    const void* const base = &((*facade).*reveal(cdxtest::FacadeBaseClient()));
    const void* const accessObject = &((*facade).*reveal(cdxtest::FacadeAccess()));

    EXPECT_LT(base, accessObject);
    EXPECT_EQ(sizeof(void*) + 2 * sizeof(std::shared_ptr<void>), sizeof(Facade));
}

} // namespace
