#include "LogLines.h"

#include <oru/Log.h>
#include <support/Tcp.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace cdxtest {

LogLines::LogLines(int level) : m_formerLevel(oru::Log::getReportingLevel()) {
    oru::Log::setSink([state = m_state](int, const std::string& line) {
        const std::lock_guard<std::mutex> lock(state->mutex);
        state->lines.push_back(line);
        state->added.notify_all();
    });
    oru::Log::setReportingLevel(level);
}

LogLines::~LogLines() {
    oru::Log::setReportingLevel(m_formerLevel);
    oru::Log::setSink({});
}

void LogLines::waitForLine(const std::string& text) {
    const auto endsInText = [&text](const std::string& line) {
        return line.size() >= text.size() && line.compare(line.size() - text.size(), text.size(), text) == 0;
    };
    std::unique_lock<std::mutex> lock(m_state->mutex);
    EXPECT_TRUE(m_state->added.wait_for(
        lock, patience, [&] { return std::any_of(m_state->lines.begin(), m_state->lines.end(), endsInText); }))
        << "no line ends in \"" << text << "\"";
}

} // namespace cdxtest
