#include "CdxLog.h"
#include "CdxXalAccess.h"
#include "CdxXalCallback.h"

#include <utility>

using xalobjects_GX2::CardataexchangeService;
using CdxConfig = CardataexchangeService::CdxConfig;
using CdxConfigDescriptor = CardataexchangeService::CdxConfigDescriptor;
using CdxTrigger = CardataexchangeService::CdxTrigger;
using CdxMasterControl = CardataexchangeService::CdxMasterControl;
using CdxMasterControlDescriptor = CardataexchangeService::CdxMasterControlDescriptor;

namespace zepclient {

// Tells the service, before ">>" in every name, whether the element is new or refreshed.
static const std::string NAME_REFRESH("RefreshField^");

namespace {

using Response = std::shared_ptr<const xal::XalResponse>;
template <class Element>
using Created = xal::XalAccessorCallbackParamType<Element>;

std::string nameOf(const oru::Json::Value& document) {
    return document["name"].asString();
}

std::string compact(const oru::Json::Value& document) {
    oru::Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    writer["commentStyle"] = "None"; // a document that was read with comments is one line all the same
    return oru::Json::writeString(writer, document);
}

/// A descriptor filled from a document; one without "name" gets the prefix and an empty name.
template <class Descriptor>
Descriptor filled(CdxXalAccess& access, void (CdxXalAccess::*fill)(Descriptor&, oru::Json::Value&, std::string),
                  oru::Json::Value& document, const std::string& namePrefix) {
    Descriptor descriptor;
    (access.*fill)(descriptor, document, namePrefix);
    if (!descriptor.getName().isValid())
        descriptor.setName(namePrefix + ">>");
    return descriptor;
}

} // namespace

void CdxXalAccess::report(CreateStatus status, bool isCreated, oru::Json::Value document) {
    if (const auto callback = this->callback())
        (callback.get()->*status)(isCreated, std::move(document));
}

void CdxXalAccess::report(UpdateStatus status, bool isUpdated, std::string name) {
    if (const auto callback = this->callback())
        (callback.get()->*status)(isUpdated, std::move(name));
}

template <class Element>
void CdxXalAccess::reportCreated(CreateStatus status, const std::string& name, const Element& element) {
    oru::Json::Value result;
    result["name"] = name;
    result["id"] = element.getId().getValue();
    result["uri"] = element.getUri().getValue();
    report(status, true, std::move(result));
}

void CdxXalAccess::reportCreateFailed(CreateStatus status, const std::string& name) {
    oru::Json::Value result;
    result["name"] = name;
    report(status, false, std::move(result));
}

void CdxXalAccess::CreateNewCdxConfigElement(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    const auto descriptor = filled(*this, &CdxXalAccess::PopulateConfigDescFromJson, document, NAME_REFRESH + "true");
    const std::string name = nameOf(document);
    CDX_LOG_NO_LINE(LogNotice) << "Creating new cdxconfig element for " << name;
    service()->createElement<CdxConfig>(
        descriptor,
        [this, name](Created<CdxConfig> element, Response) {
            CDX_LOG_NO_LINE(LogNotice) << "Created new XAL element for Cdx Config";
            reportCreated(&CdxXalCallback::CdxConfigCreateStatus, name, *element);
        },
        [this, name](Response) {
            CDX_LOG(LogError) << "Error in creating cdx Config element";
            reportCreateFailed(&CdxXalCallback::CdxConfigCreateStatus, name);
        });
}

void CdxXalAccess::CreateNewCdxTriggerElement(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    const auto descriptor = filled(*this, &CdxXalAccess::PopulateTriggerDescFromJson, document, NAME_REFRESH + "true");
    const std::string name = nameOf(document);
    CDX_LOG_NO_LINE(LogNotice) << "Creating new cdx Trigger  element for " << name;
    service()->createElement<CdxTrigger>(
        descriptor,
        [this, name](Created<CdxTrigger> element, Response) {
            CDX_LOG_NO_LINE(LogNotice) << "Created new XAL element for Cdx Trigger";
            reportCreated(&CdxXalCallback::CdxTriggerCreateStatus, name, *element);
        },
        [this, name](Response) {
            CDX_LOG(LogError) << "Error in creating cdx Trigger element";
            reportCreateFailed(&CdxXalCallback::CdxTriggerCreateStatus, name);
        });
}

void CdxXalAccess::CreateNewCdxMasterControlElement(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    const auto descriptor =
        filled(*this, &CdxXalAccess::PopulateMasterCtlDescFromJson, document, NAME_REFRESH + "true");
    const std::string name = nameOf(document);
    CDX_LOG_NO_LINE(LogNotice) << "Creating new cdxmaster control element for " << name;
    service()->createElement<CdxMasterControl>(
        descriptor,
        [this, name](Created<CdxMasterControl> element, Response) {
            CDX_LOG_NO_LINE(LogNotice) << "Created new XAL element for CdxMaster Control";
            reportCreated(&CdxXalCallback::CdxMasterControlElementCreateStatus, name, *element);
        },
        [this, name](Response) {
            CDX_LOG(LogError) << "Error in creating cdxmaster Control element";
            reportCreateFailed(&CdxXalCallback::CdxMasterControlElementCreateStatus, name);
        });
}

void CdxXalAccess::UpdateConfigElement(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    const auto service = this->service();
    if (!service)
        return;
    CDX_LOG(LogDebug) << "Updating config value = " << compact(document);
    const auto descriptor = filled(*this, &CdxXalAccess::PopulateConfigDescFromJson, document, NAME_REFRESH + "false");
    const std::string name = nameOf(document);
    service->updateElement<CdxConfig>(
        descriptor,
        [this, name](Response response) {
            CDX_LOG_NO_LINE(LogNotice) << "UPDATED CDX Config Record STATUS CODE = " << response->getStatusCode();
            report(&CdxXalCallback::CdxConfigUpdateStatus, true, name);
        },
        [this, name](Response response) {
            CDX_LOG(LogAlert) << "Failed to Update the CDX Config Record  STATUS CODE = " << response->getStatusCode();
            report(&CdxXalCallback::CdxConfigUpdateStatus, false, name);
        });
}

void CdxXalAccess::UpdateTriggerElement(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    const auto service = this->service();
    if (!service)
        return;
    const auto descriptor = filled(*this, &CdxXalAccess::PopulateTriggerDescFromJson, document, NAME_REFRESH + "false");
    CDX_LOG_NO_LINE(LogNotice) << "Populated CFG Element UU ID = " << descriptor.getId().getValue();
    const std::string name = nameOf(document);
    service->updateElement<CdxTrigger>(
        descriptor,
        [this, name](Response response) {
            CDX_LOG_NO_LINE(LogNotice) << "UPDATED CDX Trigger Record STATUS CODE = " << response->getStatusCode();
            report(&CdxXalCallback::CdxTriggerUpdateStatus, true, name);
        },
        [this, name](Response response) {
            CDX_LOG(LogAlert) << "Failed to Update the CDX Trigger Record  STATUS CODE = " << response->getStatusCode();
            report(&CdxXalCallback::CdxTriggerUpdateStatus, false, name);
        });
}

void CdxXalAccess::UpdateMasterControlElement(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    const auto service = this->service();
    if (!service)
        return;
    CDX_LOG_NO_LINE(LogNotice) << "Updating value = " << compact(document);
    // Unlike the other writes a missing name stays unset, so that the last of these lines throws.
    CdxMasterControlDescriptor descriptor;
    PopulateMasterCtlDescFromJson(descriptor, document, NAME_REFRESH + "false");
    CDX_LOG(LogDebug) << "Populated value  EvID = " << descriptor.getEventTicket().getValue();
    CDX_LOG(LogDebug) << "Populated value  Data Delivery = " << descriptor.getDataDeliveryResult().getValue();
    CDX_LOG(LogDebug) << "Populated value  Backend = " << descriptor.getBackendChannelControl().getValue();
    CDX_LOG(LogDebug) << "Populated value  Name = " << descriptor.getName().getValue();
    const std::string name = nameOf(document);
    service->updateElement<CdxMasterControl>(
        descriptor,
        [this, name](Response) {
            CDX_LOG_NO_LINE(LogNotice) << "UPDATED CDX Master Control";
            report(&CdxXalCallback::CdxMasterCtlUpdateStatus, true, name);
        },
        [this, name](Response response) {
            CDX_LOG(LogAlert) << "Failed to Update the Master Control object STATUS CODE = "
                              << response->getStatusCode();
            report(&CdxXalCallback::CdxMasterCtlUpdateStatus, false, name);
        });
}

void CdxXalAccess::DeleteConfig(oru::Json::Value document) {
    CDX_LOG(LogDebug);
    CdxConfigDescriptor descriptor;
    if (document.isMember("id"))
        descriptor.setId(document["id"].asString());
    CDX_LOG_NO_LINE(LogNotice) << "Clearing cdxconfig element at server side for ";
    service()->deleteElement<CdxConfig>(
        descriptor, [](Response) { CDX_LOG_NO_LINE(LogNotice) << "Cleared CDX Config  element"; },
        [](Response response) {
            CDX_LOG(LogError) << "Error in deleting cdx Config element, response code = " << response->getStatusCode();
        });
}

} // namespace zepclient
