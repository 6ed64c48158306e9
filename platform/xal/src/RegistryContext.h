#ifndef XAL_REGISTRYCONTEXT_H
#define XAL_REGISTRYCONTEXT_H

#include "HttpAccess.h"
#include "PendingRequests.h"
#include "RequestHeaders.h"
#include "Tasks.h"
#include "WebsocketManagers.h"

#include <xal/ServiceRegistry.h>

#include <chrono>
#include <memory>
#include <string>

namespace xal {

/// What all services of one registry share. Fixed once it is made, and kept alive by each of them, since a service
/// object may outlive the registry.
struct RegistryContext {
    std::shared_ptr<Tasks> tasks;
    std::shared_ptr<xalutil::ITaskExecutor> http;
    std::shared_ptr<PendingRequests> pending;
    std::shared_ptr<RequestHeaders> headers;
    std::shared_ptr<HttpAccess> access;
    std::shared_ptr<WebsocketManagers> managers;
    std::string registryUri; ///< empty: services are where their configuration says
};

/// How one service is reached, and how long is waited for it.
struct LinkSettings {
    ServiceAddress address;
    std::chrono::milliseconds requestTimeout{0};
    std::chrono::milliseconds subscribeTimeout{0};
    std::chrono::milliseconds pingInterval{0};
    std::chrono::milliseconds pongTimeout{0};
};

} // namespace xal

#endif
