#ifndef CDXTESTS_FAULTS_MEMORYSWEEP_H
#define CDXTESTS_FAULTS_MEMORYSWEEP_H

#include <cstddef>
#include <functional>
#include <string>

namespace cdxtest {

/// What of an exchange meets a shortage: `count` pieces of memory are refused, from the `first`-th on that are asked
/// for in the phase of that name.
class Shortage {
public:
    Shortage(std::string phase, std::size_t first, std::size_t count)
        : m_phase(std::move(phase)), m_first(first), m_count(count) {}

    /// Runs a phase of the exchange, which returns when it has had its outcome.
    void phase(const std::string& name, const std::function<void()>& run) const;

private:
    const std::string m_phase;
    const std::size_t m_first;
    const std::size_t m_count;
};

/// Runs the program's own call on memory that may be short; again, until it does not throw.
void insist(const std::function<void()>& call);
/// Runs the program's own call on memory that may be short; whether it threw.
bool throws(const std::function<void()>& call);
/// Throws what the test fails with, unless `holds`.
void demand(bool holds, const std::string& what);

/// Runs the exchange again and again, each time in a child process, with a shortage that begins one step later, until
/// it begins after the phase's end. The exchange throws what is wrong; it also fails where it crashes, hangs or leaks.
/// The step is CDX_MEMORY_STEP where that is set.
void sweep(const std::string& phase, std::size_t step, std::size_t count,
           const std::function<void(const Shortage&)>& exchange);

} // namespace cdxtest

#endif
