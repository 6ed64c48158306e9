#ifndef CDXTESTS_FAULTS_FASTCLOCK_H
#define CDXTESTS_FAULTS_FASTCLOCK_H

#include <chrono>
#include <cstdint>
#include <vector>

/// A program that links this has a steady clock that runs 200 times faster, and whoever waits by it waits as many times
/// shorter.
namespace cdxtest::fastclock {

constexpr int factor = 200;

/// When connections to that port were tried since the last call, by the fast clock.
void watchConnections(std::uint16_t port);
std::vector<std::chrono::steady_clock::time_point> takeConnections();

/// What the processor spent on this process, and what really passed.
std::chrono::nanoseconds processorTime();
std::chrono::nanoseconds realTime();

} // namespace cdxtest::fastclock

#endif
