#ifndef CDXTESTS_SERVICE_FAILINGALLOCATOR_H
#define CDXTESTS_SERVICE_FAILINGALLOCATOR_H

#include <cstdint>

namespace cdxtest {

/// While it lives, chosen allocations of this program fail; those of the thread that made it never do. One at a time.
class FailingAllocations {
public:
    /// From the `first` one on (counted from 1) so many fail.
    FailingAllocations(std::uint64_t first, std::uint64_t count);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    /// Whether one has failed.
    bool hasFailed() const;
};

} // namespace cdxtest

#endif
