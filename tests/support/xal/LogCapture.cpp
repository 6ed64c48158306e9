#include "LogCapture.h"

#include <oru/Log.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <stdexcept>

namespace cdxtest {

namespace {

constexpr int defaultReportingLevel = 3;
constexpr int defaultFileOutputLevel = -1;

bool startsWith(const std::string& text, std::size_t at, const std::string& part) {
    return text.compare(at, part.size(), part) == 0;
}

/// Where the signature ends: behind the parameter list that nothing else of a name follows, and behind "const".
std::size_t endOfSignature(const std::string& text) {
    int depth = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        depth += (c == '(' || c == '<') - (c == ')' || c == '>');
        const bool closesLambda = c == '>' && text[at - 1] == ')';
        if (depth != 0 || (c != ')' && !closesLambda))
            continue;
        const std::size_t next = at + 1;
        if (startsWith(text, next, "::") || startsWith(text, next, "("))
            continue;
        return startsWith(text, next, " const") ? next + 6 : next;
    }
    throw std::invalid_argument("no signature in: " + text);
}

} // namespace

std::string LogLine::operation() const {
    const std::size_t end = signature.find('(');
    const std::size_t begin = signature.rfind(' ', end);
    return signature.substr(begin + 1, end - begin - 1);
}

bool LogLine::isInLambda() const {
    return signature.find("<lambda") != std::string::npos || signature.find("(anonymous class)") != std::string::npos ||
           signature.find("(lambda at") != std::string::npos;
}

std::string LogLine::outline() const {
    const std::string name = operation();
    const std::string space = "zepclient::";
    return std::to_string(level) + ' ' + (startsWith(name, 0, space) ? name.substr(space.size()) : name) +
           (isInLambda() ? "[]" : "") + (number ? ": " : " ") + message;
}

LogLine takeApart(int level, const std::string& text) {
    LogLine line;
    line.level = level;
    std::size_t at = endOfSignature(text);
    line.signature = text.substr(0, at);
    if (at < text.size() && text[at] == ':') {
        std::size_t end = at + 1;
        while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])))
            ++end;
        line.number = std::stoi(text.substr(at + 1, end - at - 1));
        at = end;
    }
    if (at >= text.size() || text[at] != ' ')
        throw std::invalid_argument("no blank behind the head of: " + text);
    line.message = text.substr(at + 1);
    return line;
}

LogCapture::LogCapture(int reportingLevel, int fileOutputLevel) {
    oru::Log::setReportingLevel(reportingLevel);
    oru::Log::setFileOutputLevel(fileOutputLevel);
    oru::Log::setSink([this](int level, const std::string& text) { take(level, text); });
}

LogCapture::~LogCapture() {
    oru::Log::setSink({});
    oru::Log::setReportingLevel(defaultReportingLevel);
    oru::Log::setFileOutputLevel(defaultFileOutputLevel);
}

void LogCapture::setLevel(int level) {
    oru::Log::setReportingLevel(level);
    oru::Log::setFileOutputLevel(level);
}

void LogCapture::clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

void LogCapture::take(int level, const std::string& text) {
    const LogLine line = takeApart(level, text);
    std::shared_ptr<Observer> observer;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(line);
        observer = m_observer.lock();
    }
    m_written.notify_all();
    if (observer)
        (*observer)(line);
}

bool LogCapture::waitFor(const std::string& outline) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_written.wait_for(lock, std::chrono::seconds(20), [&] {
        return std::any_of(m_lines.begin(), m_lines.end(),
                           [&](const LogLine& line) { return line.outline() == outline; });
    });
}

std::shared_ptr<void> LogCapture::observe(std::function<void(const LogLine&)> observer) {
    auto kept = std::make_shared<Observer>(std::move(observer));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_observer = kept;
    return kept;
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<std::string> LogCapture::outlines(std::optional<int> level) const {
    std::vector<std::string> outlines;
    for (const LogLine& line : lines()) {
        if (!level || *level == line.level)
            outlines.push_back(line.outline());
    }
    return outlines;
}

std::vector<std::string> LogCapture::outlinesOf(const std::string& operation) const {
    std::vector<std::string> outlines;
    for (const LogLine& line : lines()) {
        if (line.operation() == "zepclient::" + operation)
            outlines.push_back(line.outline());
    }
    return outlines;
}

LogLine LogCapture::line(const std::string& message) const {
    for (const LogLine& line : lines()) {
        if (line.message == message)
            return line;
    }
    throw std::out_of_range("no log line: " + message);
}

} // namespace cdxtest
