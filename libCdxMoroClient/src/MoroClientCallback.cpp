#include "MoroClientCallback.h"

#include "CdxLog.h"
#include "CopyCall.h"

#include <utility>

namespace zepclient {

MoroClientCallback::MoroClientCallback() {
    CDX_LOG(LogDebug);
}

MoroClientCallback::~MoroClientCallback() = default;

void MoroClientCallback::executeCdxClientHandler(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    callCopyOf(m_cdxClientHandler, std::move(document));
}

void MoroClientCallback::executeCdxMasterControlCreateHandler(bool isCreated, std::string id) {
    callCopyOf(m_cdxMasterControlCreateHandler, isCreated, std::move(id));
}

void MoroClientCallback::executeCdxMasterControlUpdateHandler(bool isUpdated) {
    callCopyOf(m_cdxMasterControlUpdateHandler, isUpdated);
}

void MoroClientCallback::executeCdxDataSubHandler(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    callCopyOf(m_cdxDataSubHandler, std::move(document));
}

void MoroClientCallback::executeCdxDataUpdateHandler(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    callCopyOf(m_cdxDataUpdateHandler, std::move(document));
}

void MoroClientCallback::executeCdxConfigCreateHandler(bool isCreated, oru::Json::Value document) {
    CDX_LOG(LogDebug);
    callCopyOf(m_cdxConfigCreateHandler, isCreated, std::move(document));
}

void MoroClientCallback::executeCdxConfigUpdateHandler(bool isUpdated) {
    CDX_LOG(LogDebug);
    callCopyOf(m_cdxConfigUpdateHandler, isUpdated);
}

void MoroClientCallback::executeCdxTriggerCreateHandler(bool isCreated, oru::Json::Value document) {
    CDX_LOG(LogDebug);
    callCopyOf(m_cdxTriggerCreateHandler, isCreated, std::move(document));
}

void MoroClientCallback::executeCdxTriggerUpdateHandler(bool isUpdated) {
    CDX_LOG(LogDebug);
    callCopyOf(m_cdxTriggerUpdateHandler, isUpdated);
}

} // namespace zepclient
