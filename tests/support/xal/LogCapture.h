#ifndef CDXTESTS_SUPPORT_XAL_LOGCAPTURE_H
#define CDXTESTS_SUPPORT_XAL_LOGCAPTURE_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cdxtest {

/// A line of the platform's log, taken apart: "signature:12 message", or "signature message".
struct LogLine {
    int level = 0;
    std::string signature; ///< as the compiler spells it
    std::optional<int> number;
    std::string message;

    /// "zepclient::Class::operation", without result, parameters and enclosing lambda.
    std::string operation() const;
    /// Whether it was written inside a lambda.
    bool isInLambda() const;
    /// All of it but what differs between compilers and editions of the source: level, operation without its namespace,
    /// "[]" in a lambda, ":" where there is a line number, a blank, the message. For example "7 Gate::open: unlatched".
    std::string outline() const;
};

/// Throws std::invalid_argument where `text` does not begin with a signature.
LogLine takeApart(int level, const std::string& text);

/// Takes the platform's log while it lives, and restores console and default levels afterwards. One at a time.
class LogCapture {
public:
    /// `level` is both the reporting level and the file output level.
    explicit LogCapture(int level = 7) : LogCapture(level, level) {}
    LogCapture(int reportingLevel, int fileOutputLevel);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void setLevel(int level);
    void clear();
    std::vector<LogLine> lines() const;
    /// The lines' outlines; only those of one level if it is given.
    std::vector<std::string> outlines(std::optional<int> level = {}) const;
    /// The outlines of the lines that `operation` ("Class::operation") wrote, lambdas included.
    std::vector<std::string> outlinesOf(const std::string& operation) const;
    /// The first line with this message. Throws std::out_of_range where there is none.
    LogLine line(const std::string& message) const;
    /// Waits until a line with this outline has been written; false after 20 seconds without one.
    bool waitFor(const std::string& outline) const;
    /// Calls `observer` for every line, on the thread that writes it, for as long as the result is kept.
    [[nodiscard]] std::shared_ptr<void> observe(std::function<void(const LogLine&)> observer);

private:
    using Observer = std::function<void(const LogLine&)>;

    void take(int level, const std::string& text);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_written;
    std::vector<LogLine> m_lines;
    std::weak_ptr<Observer> m_observer;
};

} // namespace cdxtest

#endif
