#include "AccessFixture.h"

namespace cdxtest {

namespace {

template <class Elements>
std::string idsOf(const Elements& elements) {
    std::string ids;
    for (const auto& element : elements)
        ids += ' ' + (element.getId().isValid() ? element.getId().getValue() : std::string("-"));
    return ids;
}

std::string call(const char* operation, bool flag, const std::string& rest) {
    return std::string(operation) + (flag ? " 1 " : " 0 ") + rest;
}

} // namespace

void RecordingCallback::CdxClientStateAvailablity(bool isAvailable) {
    calls.push_back(isAvailable ? "CdxClientStateAvailablity 1" : "CdxClientStateAvailablity 0");
}

void RecordingCallback::CdxClientStateObjectNotification(std::vector<zepclient::CdxClientStateObject> states) {
    calls.push_back("CdxClientStateObjectNotification" + idsOf(states));
}

void RecordingCallback::CdxClientStateUpdateNotification(zepclient::CdxClientStateObject state) {
    calls.push_back("CdxClientStateUpdateNotification " + state.getId().getValue());
}

void RecordingCallback::CdxMasterControlElementCreateStatus(bool isCreated, oru::Json::Value document) {
    calls.push_back(call("CdxMasterControlElementCreateStatus", isCreated, textOf(document)));
}

void RecordingCallback::CdxMasterCtlUpdateStatus(bool isUpdated, std::string name) {
    calls.push_back(call("CdxMasterCtlUpdateStatus", isUpdated, name));
}

void RecordingCallback::CdxDataObjectNotification(std::vector<zepclient::CdxDataObject> data) {
    calls.push_back("CdxDataObjectNotification" + idsOf(data));
}

void RecordingCallback::CdxDataUpdateNotification(std::shared_ptr<const zepclient::CdxDataObject> data) {
    calls.push_back("CdxDataUpdateNotification " + data->getId().getValue());
    lastData = std::move(data);
}

void RecordingCallback::CdxConfigCreateStatus(bool isCreated, oru::Json::Value document) {
    calls.push_back(call("CdxConfigCreateStatus", isCreated, textOf(document)));
}

void RecordingCallback::CdxConfigUpdateStatus(bool isUpdated, std::string name) {
    calls.push_back(call("CdxConfigUpdateStatus", isUpdated, name));
}

void RecordingCallback::CdxTriggerCreateStatus(bool isCreated, oru::Json::Value document) {
    calls.push_back(call("CdxTriggerCreateStatus", isCreated, textOf(document)));
}

void RecordingCallback::CdxTriggerUpdateStatus(bool isUpdated, std::string name) {
    calls.push_back(call("CdxTriggerUpdateStatus", isUpdated, name));
}

void RecordingCallback::CDXClientDisconnected(std::string name) {
    calls.push_back("CDXClientDisconnected " + name);
}

AccessFixture::AccessFixture() : access(makeAccess()) {
    log.clear();
}

std::unique_ptr<zepclient::CdxXalAccess> AccessFixture::makeAccess() const {
    return std::make_unique<zepclient::CdxXalAccess>(
        std::make_shared<xal::XalClientServices>(registry, nullptr, nullptr, nullptr, "test"));
}

void AccessFixture::connect() {
    access->AssignCallback(callback);
    access->start();
    connection = registry->connect();
    clearRecords();
}

void AccessFixture::clearRecords() {
    log.clear();
    registry->journal()->clear();
    callback->calls.clear();
}

} // namespace cdxtest
