#ifndef XAL_HTTPREQUESTS_H
#define XAL_HTTPREQUESTS_H

#include "HttpAccess.h"
#include "Uri.h"

#include <xal/Service.h>
#include <xalutil/HttpSession.h>

#include <string>

namespace xal {

/// The path of a service, below the base URI's own path.
std::string servicePath(const Uri& base, const ServiceAddress& address);

/// A request's method, address, query and body.
xalutil::HttpRequest makeHttpRequest(const Uri& base, const ServiceAddress& address, const Request& request);

} // namespace xal

#endif
