#ifndef CDXTESTS_E2E_RECORDER_H
#define CDXTESTS_E2E_RECORDER_H

#include <oru/Json.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace cdxtest {

/// What an application was told: which handler, of which client, with what.
struct Told {
    std::string what;
    std::string client;
    oru::Json::Value document = {};
    bool success = false;
};

std::ostream& operator<<(std::ostream& out, const Told& told);

/// Everything that the handlers of a test's application were told, in order; filled by the framework's thread, read by
/// the test.
class Recorder {
public:
    using Match = std::function<bool(const Told&)>;

    void add(Told told);

    /// The `count`-th record that `match` accepts, waited for with a deadline that only a failing test meets. Fails the
    /// test and gives an empty record when it does not come.
    Told waitFor(const Match& match, std::size_t count = 1);
    Told waitFor(const std::string& what, const std::string& client, std::size_t count = 1);

    std::size_t count(const std::string& what, const std::string& client) const;
    std::vector<Told> all() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_added;
    std::vector<Told> m_told;
};

} // namespace cdxtest

#endif
