#ifndef CDXTOOLS_DEMO_EXCHANGES_H
#define CDXTOOLS_DEMO_EXCHANGES_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace cdxtools {

/// The exchanges that the demo waits for, by name. Each counts as completed only when its event was awaited and
/// arrived. Events may arrive on any thread, also before anybody waits for them.
class Exchanges {
public:
    Exchanges(std::vector<std::string> plan, std::chrono::seconds patience);

    void arrived(const std::string& name);

    /// Waits until all of `names`, which the plan holds, have arrived; false when patience ran out.
    bool await(const std::vector<std::string>& names);

    std::size_t planned() const { return m_plan.size(); }
    std::size_t completed() const;
    /// Those of the plan that were not awaited with success, in the plan's order.
    std::vector<std::string> missing() const;

private:
    const std::vector<std::string> m_plan;
    const std::chrono::steady_clock::time_point m_deadline;
    mutable std::mutex m_mutex;
    std::condition_variable m_somethingArrived;
    std::set<std::string> m_arrived;
    std::set<std::string> m_completed;
};

} // namespace cdxtools

#endif
