// Replaces what C++ and Asio allocate with; the other forms of operator new come down to these.
#include "FailingAllocator.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();

std::atomic<std::uint64_t> made{0};
std::atomic<std::uint64_t> firstToFail{never};
std::atomic<std::uint64_t> lastToFail{never};
thread_local bool isSpared = false;

bool fails() {
    if (isSpared || firstToFail == never)
        return false;
    const std::uint64_t number = ++made;
    return number >= firstToFail && number <= lastToFail;
}

} // namespace

namespace cdxtest {

FailingAllocations::FailingAllocations(std::uint64_t first, std::uint64_t count) {
    isSpared = true;
    made = 0;
    lastToFail = first + count - 1;
    firstToFail = first;
}

FailingAllocations::~FailingAllocations() {
    firstToFail = never;
}

bool FailingAllocations::hasFailed() const {
    return made >= firstToFail;
}

} // namespace cdxtest

void* operator new(std::size_t size) {
    void* const memory = fails() ? nullptr : std::malloc(size != 0 ? size : 1);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) {
    void* memory = nullptr;
    return fails() || ::posix_memalign(&memory, alignment, size) != 0 ? nullptr : memory;
}
