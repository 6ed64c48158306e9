#ifndef CDXHANDLERS_H
#define CDXHANDLERS_H

#include <oru/Json.h>

#include <functional>
#include <string>

/// @file
/// What an application registers to be told of things.
///
/// Every handler runs on one and the same framework thread, one at a time; while one runs, no other does, so it should
/// return soon and hand long work on. One call comes on the application's own thread: that a create or delete failed
/// because the service was never reported since the start. A handler's arguments are its own. It may call everything of
/// CdxMoroClient, also replace itself, clean up its own client, stop, or release; only StartCdxMoroClient it must not
/// call. What it throws is logged by the framework, and the next call is made.

namespace zepclient {

/// Told of a client's state or of a data message: its document (CdxMoroClient lists the keys).
using cdxEventHandler = std::function<void(oru::Json::Value)>;

/// Told that the service has gone: the client's name.
using cdxEventDeleteHandler = std::function<void(std::string)>;

/// Told how a configuration record's create ended: whether the record was created, and a document with its "name" and,
/// if it was, the "id" and "uri" that the service gave it.
using cdxConfigCreateHandler = std::function<void(bool, oru::Json::Value)>;

/// Told whether a configuration record was updated.
using cdxConfigUpdateHandler = std::function<void(bool)>;

/// Told how a trigger message's create ended; the arguments are as with cdxConfigCreateHandler.
using cdxTriggerCreateHandler = std::function<void(bool, oru::Json::Value)>;

/// Told whether a trigger message was updated.
using cdxTriggerUpdateHandler = std::function<void(bool)>;

/// Told how a master control element's create ended: whether it was created, and the id that the service gave it (empty
/// if it was not).
using cdxMasterControlCreateRecieveHandler = std::function<void(bool, std::string)>;

/// Told whether a master control element was updated.
using cdxMasterControlUpdateHandler = std::function<void(bool)>;

} // namespace zepclient

#endif
