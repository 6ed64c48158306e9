#include "CdxXalCallback.h"

#include "CdxLog.h"
#include "CopyCall.h"
#include "ElementText.h"

#include <utility>

namespace zepclient {

CdxXalCallback::CdxXalCallback() {
    CDX_LOG(LogDebug);
}

CdxXalCallback::~CdxXalCallback() = default;

void CdxXalCallback::CdxClientStateAvailablity(bool) {
    CDX_LOG_NO_LINE(LogNotice) << "CDX Client State is available now";
}

void CdxXalCallback::CdxClientStateObjectNotification(std::vector<CdxClientStateObject> states) {
    CDX_LOG_NO_LINE(LogNotice) << "SIZE OF CLIENT STATE OBJECT VECTOR = " << states.size();
    if (states.empty())
        return;
    CdxClientStateObject& first = states.front();
    CDX_LOG(LogDebug) << "CANONICAL NAME = " << textOrInvalid(first.getCanonicalName());
    CDX_LOG(LogDebug) << "UUID = " << textOrInvalid(first.getId());
    CDX_LOG_NO_LINE(LogNotice) << "Going For Callback to Moro Client";
    callCopyOf(clientStateCallback, std::move(first));
}

void CdxXalCallback::CdxClientStateUpdateNotification(CdxClientStateObject state) {
    CDX_LOG(LogDebug);
    callCopyOf(clientStateCallback, std::move(state));
}

void CdxXalCallback::CdxMasterControlElementCreateStatus(bool isCreated, oru::Json::Value document) {
    CDX_LOG_NO_LINE(LogNotice) << "XAL CDX MASTER CONTROL CREATE ELEMENT STATUS CODE = " << isCreated;
    if (masterCtlCreateCallback)
        CDX_LOG_NO_LINE(LogNotice) << "Now Master Control Callback on MORO CLient";
    callCopyOf(masterCtlCreateCallback, isCreated, std::move(document));
}

void CdxXalCallback::CdxMasterCtlUpdateStatus(bool isUpdated, std::string name) {
    CDX_LOG_NO_LINE(LogNotice) << "XAL Cdx Master Control Update Status " << isUpdated;
    callCopyOf(masterCtlUpdateCallback, isUpdated, std::move(name));
}

void CdxXalCallback::CdxDataObjectNotification(std::vector<CdxDataObject> data) {
    CDX_LOG(LogDebug);
    CDX_LOG(LogDebug) << "SIZE OF CDX DATA VECTOR = " << data.size();
    if (data.empty() || !dataSubscriptionCallback)
        return;
    CdxDataObject& first = data.front();
    if (first.getCdxClientDataReport().isValid())
        CDX_LOG_NO_LINE(LogNotice) << "CDX Client Data report is available";
    callCopyOf(dataSubscriptionCallback, std::move(first));
}

void CdxXalCallback::CdxDataUpdateNotification(std::shared_ptr<const CdxDataObject> data) {
    CDX_LOG(LogDebug);
    if (!dataUpdateCallback)
        return;
    if (data->getCdxClientDataReport().isValid()) {
        CDX_LOG_NO_LINE(LogNotice) << "Updated CDX Client Data report is available";
        const std::vector<std::string>& report = data->getCdxClientDataReport().getValue();
        CDX_LOG(LogDebug) << "Size of TEMP CDX DATA VECTOR = " << report.size();
        CDX_LOG(LogDebug) << "Size of CDX DATA = " << (report.empty() ? 0 : report.front().size());
        for (const std::string& entry : report)
            CDX_LOG_NO_LINE(LogNotice) << entry;
        CDX_LOG(LogDebug) << "Callback before Data Report = " << joined(report);
    }
    callCopyOf(dataUpdateCallback, std::move(data));
}

void CdxXalCallback::CdxConfigCreateStatus(bool isCreated, oru::Json::Value document) {
    CDX_LOG_NO_LINE(LogNotice) << "Cdx Config Element created, callback occured";
    callCopyOf(configCreateCallback, isCreated, std::move(document));
}

void CdxXalCallback::CdxConfigUpdateStatus(bool isUpdated, std::string name) {
    CDX_LOG_NO_LINE(LogNotice) << "Cdx Config update status = " << isUpdated;
    callCopyOf(configUpdateCallback, isUpdated, std::move(name));
}

void CdxXalCallback::CdxTriggerCreateStatus(bool isCreated, oru::Json::Value document) {
    CDX_LOG_NO_LINE(LogNotice) << "Cdx Trigger Element created, callback occured = ";
    callCopyOf(triggerCreateCallback, isCreated, std::move(document));
}

void CdxXalCallback::CdxTriggerUpdateStatus(bool isUpdated, std::string name) {
    CDX_LOG_NO_LINE(LogNotice) << "Cdx Trigger Element updated, callback occured";
    callCopyOf(triggerUpdateCallback, isUpdated, std::move(name));
}

void CdxXalCallback::CDXClientDisconnected(std::string name) {
    CDX_LOG_NO_LINE(LogNotice) << "Cdx Service is disconnected = " << name;
    callCopyOf(clientDisconnectCallback, std::move(name));
}

} // namespace zepclient
