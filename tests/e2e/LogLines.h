#ifndef CDXTESTS_E2E_LOGLINES_H
#define CDXTESTS_E2E_LOGLINES_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cdxtest {

/// Takes the platform log's lines while it lives, from any thread.
class LogLines {
public:
    /// Lines are asked for up to `level`.
    explicit LogLines(int level);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    /// Waits for a line that ends in `text`; fails the test when none comes.
    void waitForLine(const std::string& text);

private:
    struct State {
        std::mutex mutex;
        std::condition_variable added;
        std::vector<std::string> lines;
    };
    const std::shared_ptr<State> m_state = std::make_shared<State>(); // a sink may run a little longer than it is set
    const int m_formerLevel;
};

} // namespace cdxtest

#endif
