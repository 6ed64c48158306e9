#ifndef CDXTESTS_LIBRARY_BOOTSTRAP_BOOTSTRAPFIXTURE_H
#define CDXTESTS_LIBRARY_BOOTSTRAP_BOOTSTRAPFIXTURE_H

#include "CdxBaseXalClient.h"
#include "Documents.h"
#include "FrameworkDouble.h"

#include <support/xal/LogCapture.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace cdxtest {

/// A base client that nobody filled yet, and an empty journal, for every test.
class BootstrapFixture : public testing::Test {
protected:
    BootstrapFixture() {
        zepclient::CdxBaseXalClient::getInstance()->Stop();
        FrameworkDouble::reset();
        log.clear();
    }
    ~BootstrapFixture() override { zepclient::CdxBaseXalClient::getInstance()->Stop(); }

    FrameworkDouble& framework() const { return FrameworkDouble::get(); }
    std::vector<std::string> journal() const { return framework().journal->entries(); }
    void clearRecords() {
        framework().journal->clear();
        log.clear();
    }

    LogCapture log;
    oru::Json::Value registryDocument = documentOf(R"({"mode":"registry","httpUri":"http://r:1",)"
                                                   R"("serviceSettings":[{"service":"CarDataExchange","timeOut":7}]})");
    oru::Json::Value serviceDocument = documentOf(R"({"serverBaseUri":"http://s:2"})");
};

} // namespace cdxtest

#endif
