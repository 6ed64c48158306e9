#ifndef CDXTESTS_LIBRARY_ACCESSFIXTURE_H
#define CDXTESTS_LIBRARY_ACCESSFIXTURE_H

#include "CdxXalAccess.h"
#include "CdxXalCallback.h"
#include "Documents.h"

#include <support/xal/LogCapture.h>
#include <support/xal/RecordingRegistry.h>

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace cdxtest {

/// Writes down every call with its arguments: "CdxConfigUpdateStatus 1 A". The slots stay empty.
class RecordingCallback : public zepclient::CdxXalCallback {
public:
    void CdxClientStateAvailablity(bool isAvailable) override;
    void CdxClientStateObjectNotification(std::vector<zepclient::CdxClientStateObject> states) override;
    void CdxClientStateUpdateNotification(zepclient::CdxClientStateObject state) override;
    void CdxMasterControlElementCreateStatus(bool isCreated, oru::Json::Value document) override;
    void CdxMasterCtlUpdateStatus(bool isUpdated, std::string name) override;
    void CdxDataObjectNotification(std::vector<zepclient::CdxDataObject> data) override;
    void CdxDataUpdateNotification(std::shared_ptr<const zepclient::CdxDataObject> data) override;
    void CdxConfigCreateStatus(bool isCreated, oru::Json::Value document) override;
    void CdxConfigUpdateStatus(bool isUpdated, std::string name) override;
    void CdxTriggerCreateStatus(bool isCreated, oru::Json::Value document) override;
    void CdxTriggerUpdateStatus(bool isUpdated, std::string name) override;
    void CDXClientDisconnected(std::string name) override;

    std::vector<std::string> calls;
    std::shared_ptr<const zepclient::CdxDataObject> lastData;
};

/// An access object on the recording registry, with a recording callback at hand. The log is empty when a test begins.
class AccessFixture : public testing::Test {
protected:
    AccessFixture();

    std::unique_ptr<zepclient::CdxXalAccess> makeAccess() const;
    /// Assigns the callback, starts and connects; afterwards log, journal and calls are empty.
    void connect();
    std::vector<std::string> journal() const { return registry->journal()->entries(); }
    void clearRecords();

    LogCapture log;
    std::shared_ptr<RecordingRegistry> registry = std::make_shared<RecordingRegistry>();
    std::shared_ptr<RecordingCallback> callback = std::make_shared<RecordingCallback>();
    std::shared_ptr<zepclient::CdxXalAccess> access;
    std::shared_ptr<RecordingConnection> connection;
};

} // namespace cdxtest

#endif
