#ifndef CDXTESTS_SUPPORT_CLOCK_MOVABLECLOCK_H
#define CDXTESTS_SUPPORT_CLOCK_MOVABLECLOCK_H

#include <chrono>

/// Time that passes to order: a program that links this has clocks of its own, which go as the system's do and besides
/// as a test says, and whoever waits by them is woken when they say that it is time.
namespace cdxtest::movableclock {

// Both come when no thread of this process has anything to do any more: who is to wait does so already. They throw
// std::runtime_error when the threads do not come to rest.

/// So much time passes at once, on the calendar and on the steady clock. Returns when all threads rest again: what was
/// due was done, and what was not done was not due.
void pass(std::chrono::milliseconds time);

/// The calendar is set off by so much from what it would show. The steady clock goes on as before.
void setCalendar(std::chrono::seconds offset);

} // namespace cdxtest::movableclock

#endif
