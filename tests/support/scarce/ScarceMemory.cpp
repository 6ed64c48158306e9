#include "ScarceMemory.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace cdxtest::scarce {
namespace {

std::atomic<bool> isCounting{false};
std::atomic<std::size_t> asked{0};
std::atomic<std::size_t> refusedFrom{0};
std::atomic<std::size_t> refusedUntil{0};
thread_local bool isSparedHere = false;

/// Whether the piece that is asked for now is one that is refused.
bool isRefused() {
    if (!isCounting || isSparedHere)
        return false;
    const std::size_t number = ++asked;
    return number >= refusedFrom && number < refusedUntil;
}

} // namespace

void refuse(std::size_t first, std::size_t count) {
    asked = 0;
    refusedFrom = first;
    refusedUntil = first + count;
    isCounting = true;
}

std::size_t end() {
    isCounting = false;
    return asked;
}

bool wasRefused() {
    return asked >= refusedFrom;
}

Spared::Spared(bool isSpared) : m_before(isSparedHere) {
    isSparedHere = isSpared;
}

Spared::~Spared() {
    isSparedHere = m_before;
}

} // namespace cdxtest::scarce

// The other forms of both come down to these.

void* operator new(std::size_t size) {
    if (!cdxtest::scarce::isRefused())
        if (void* const memory = std::malloc(size != 0 ? size : 1))
            return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    void* memory = nullptr;
    if (!cdxtest::scarce::isRefused() && ::posix_memalign(&memory, alignment, size) == 0)
        return memory;
    errno = ENOMEM;
    return nullptr;
}
