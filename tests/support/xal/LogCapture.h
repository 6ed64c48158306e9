#pragma once

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

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<int, std::string>> m_lines;
};

} // namespace cdxtest
