#ifndef CDXTESTS_LIBRARY_HANDLERSFIXTURE_H
#define CDXTESTS_LIBRARY_HANDLERSFIXTURE_H

#include "Documents.h"
#include "Elements.h"

#include <CdxMoroClient.h>
#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace cdxtest {

/// A client state's document, with every field, of the client with this name.
inline oru::Json::Value stateDocument(const std::string& name) {
    oru::Json::Value document = documentOf(R"({"canonicalName":"canon","elementId":3,"isNewConfigRequested":true,)"
                                           R"("isShutdownRequested":false,"offeredDataType":["x","y"],"uri":"/u",)"
                                           R"("id":"7"})");
    document["name"] = name;
    return document;
}

/// The state itself.
inline zepclient::CdxClientStateObject state(const std::string& name) {
    return element<zepclient::CdxClientStateObject>(textOf(stateDocument(name)));
}

/// A client whose message-processor handler writes "new NAME" into `calls`. The log is empty when a test begins.
class HandlersFixture : public testing::Test {
protected:
    HandlersFixture() {
        client->setMsgProcessorCallback(
            [this](oru::Json::Value document) { calls.push_back("new " + document["name"].asString()); });
        log.clear();
    }
    ~HandlersFixture() override {
        client.reset();
        zepclient::CdxMoroClient::ReleaseCdxMoroClientThread();
    }
    void announce(const std::string& name) {
        client->xalHandleCdxClientState(state(name));
        calls.clear();
        log.clear();
    }

    std::vector<std::string> calls;
    LogCapture log;
    std::shared_ptr<zepclient::CdxMoroClient> client = zepclient::CdxMoroClient::getInstance();
};

} // namespace cdxtest

#endif
