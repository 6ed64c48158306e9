#ifndef CDXOBJECTS_H
#define CDXOBJECTS_H

#include <Cardataexchange.h>

/// @file
/// The service's elements under the names that CdxMoroClient uses for them.

namespace zepclient {

/// A data message of a client.
using CdxDataObject = xalobjects_GX2::CardataexchangeService::CdxData;
/// The state of a client as the service sees it.
using CdxClientStateObject = xalobjects_GX2::CardataexchangeService::CdxClientState;
/// A configuration record.
using CdxConfigObject = xalobjects_GX2::CardataexchangeService::CdxConfig;
/// A trigger message.
using CdxTriggerObject = xalobjects_GX2::CardataexchangeService::CdxTrigger;

} // namespace zepclient

#endif
