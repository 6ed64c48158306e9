#include "ExitHandler.h"

#include <xalutil/ProcessEnd.h>

#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>
#include <unistd.h>

namespace xalutil {

namespace {

std::atomic<bool> isEnding{false};

/// The two stages of the exit handler. Never destroyed: executors and hooks of static objects outlive it.
struct Stages {
    std::shared_ptr<CallbackList> executors = std::make_shared<CallbackList>();
    std::shared_ptr<CallbackList> hooks = std::make_shared<CallbackList>();
    pid_t process = ::getpid();
};

Stages& stages();

void atExit() {
    // A forked child has neither the threads nor anybody who would unlock what they had locked.
    const bool isParent = stages().process == ::getpid();
    if (isParent)
        stages().executors->callAll();
    isEnding = true;
    if (isParent)
        stages().hooks->callAll();
}

Stages& stages() {
    static Stages& instance = *[] {
        auto* made = new Stages;
        // OpenSSL's own exit handler is to be the older one: tasks and hooks may use TLS until ours has ended them.
        // Asked for nothing at all it would not begin yet.
        ::OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
        std::atexit(atExit);
        return made;
    }();
    return instance;
}

} // namespace

namespace exithandler {

std::unique_ptr<CallbackRegistration> registerExecutor(std::function<void()> stop) {
    return std::make_unique<CallbackRegistration>(stages().executors, std::move(stop));
}

std::unique_ptr<CallbackRegistration> registerHook(std::function<void()> atEnd) {
    return std::make_unique<CallbackRegistration>(stages().hooks, std::move(atEnd));
}

} // namespace exithandler

ProcessEndHook::ProcessEndHook(std::function<void()> atEnd)
    : m_registration(exithandler::registerHook(std::move(atEnd))) {}

ProcessEndHook::~ProcessEndHook() = default;

bool isProcessEnding() noexcept {
    return isEnding;
}

} // namespace xalutil
