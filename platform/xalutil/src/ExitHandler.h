#ifndef XALUTIL_EXITHANDLER_H
#define XALUTIL_EXITHANDLER_H

#include "CallbackList.h"

#include <functional>
#include <memory>

namespace xalutil {

/// Stops the executors that are still running when the process exits; see ProcessEnd.h. The first call of these
/// functions registers the exit handler.
namespace exithandler {

/// `stop` is called at the exit, before all process-end hooks.
std::unique_ptr<CallbackRegistration> registerExecutor(std::function<void()> stop);
std::unique_ptr<CallbackRegistration> registerHook(std::function<void()> atEnd);

} // namespace exithandler

} // namespace xalutil

#endif
