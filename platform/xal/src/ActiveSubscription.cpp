#include "ActiveSubscription.h"

#include <xalutil/ProcessEnd.h>

namespace xal {
namespace {

std::string nameOf(const SubscribeRequest& request) {
    return request.kind == SubscribeRequest::ELEMENT ? request.resourceName + "/" + request.id : request.resourceName;
}

} // namespace

ActiveSubscription::ActiveSubscription(SubscribeRequest request, std::function<void(Event)> callback)
    : m_request(std::move(request)), m_name(nameOf(m_request)),
      m_callback(std::make_shared<std::function<void(Event)>>(std::move(callback))) {}

void ActiveSubscription::deliver(Event event) {
    std::shared_ptr<std::function<void(Event)>> callback;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_callback || !*m_callback)
            return;
        callback = m_callback;
        m_isRunning = true;
        m_runner = std::this_thread::get_id();
    }
    // Whoever waits for the callback may free what it refers to: where it was released meanwhile, it goes before the
    // wait ends.
    struct Return {
        ActiveSubscription& subscription;
        std::shared_ptr<std::function<void(Event)>>& callback;
        ~Return() {
            callback.reset();
            {
                const std::lock_guard<std::mutex> lock(subscription.m_mutex);
                subscription.m_isRunning = false;
            }
            subscription.m_returned.notify_all();
        }
    } atReturn{*this, callback};
    (*callback)(std::move(event));
}

bool ActiveSubscription::release() {
    std::shared_ptr<std::function<void(Event)>> callback; // goes after the lock
    const std::lock_guard<std::mutex> lock(m_mutex);
    callback.swap(m_callback);
    return callback != nullptr;
}

void ActiveSubscription::awaitReturn() {
    if (xalutil::isProcessEnding())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_returned.wait(lock, [&] { return !m_isRunning || m_runner == std::this_thread::get_id(); });
}

bool ActiveSubscription::isReleased() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return !m_callback;
}

} // namespace xal
