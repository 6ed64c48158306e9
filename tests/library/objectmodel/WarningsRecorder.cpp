#include "WarningsRecorder.h"

#include <xalutil/Logger.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace cdxtest {
namespace {

struct State {
    std::mutex mutex;
    std::vector<std::string> lines;
    std::string facility;
    std::atomic<bool> isEnabled{true};
    std::atomic<int> createdLoggers{0};
    std::atomic<int> otherCalls{0};
};

State& state() {
    static State& instance = *new State; // the model's logger outlives the tests
    return instance;
}

class RecordingLogger : public xalutil::ILogger {
public:
    void warning(const std::string& message) override {
        const std::lock_guard<std::mutex> guard(state().mutex);
        state().lines.push_back(message);
    }
    bool isWarning() const override { return state().isEnabled; }

    void trace(const std::string&) override { ++state().otherCalls; }
    void debug(const std::string&) override { ++state().otherCalls; }
    void info(const std::string&) override { ++state().otherCalls; }
    void error(const std::string&) override { ++state().otherCalls; }
    void system(const std::string&) override { ++state().otherCalls; }
    bool isTrace() const override { return isOther(); }
    bool isDebug() const override { return isOther(); }
    bool isInfo() const override { return isOther(); }
    bool isError() const override { return isOther(); }
    bool isSystem() const override { return isOther(); }
    std::shared_ptr<ILogger> getSubFacilityLogger(const std::string&) const override {
        ++state().otherCalls;
        return std::make_shared<RecordingLogger>();
    }

private:
    static bool isOther() {
        ++state().otherCalls;
        return true;
    }
};

class RecordingFactory : public xalutil::LoggerFactory {
public:
    std::unique_ptr<xalutil::ILogger> createLogger(const std::string& facility) override {
        ++state().createdLoggers;
        const std::lock_guard<std::mutex> guard(state().mutex);
        state().facility = facility;
        return std::make_unique<RecordingLogger>();
    }
};

/// Of "libCdxMoroClient/src/Cardataexchange:123 "; 0 when the line begins otherwise.
std::size_t lengthOfHead(const std::string& line) {
    const std::string place = "libCdxMoroClient/src/Cardataexchange:";
    if (line.compare(0, place.size(), place) != 0)
        return 0;
    const auto end = line.find_first_not_of("0123456789", place.size());
    const bool hasNumber = end != std::string::npos && end > place.size() && line[place.size()] != '0';
    return hasNumber && line[end] == ' ' ? end + 1 : 0;
}

const bool isInstalled = [] {
    xalutil::LoggerFactory::setDefaultLoggerFactory(std::make_shared<RecordingFactory>());
    return true;
}();

} // namespace

WarningsRecorder::WarningsRecorder() {
    setWarningEnabled(isInstalled);
    lines();
}

WarningsRecorder::~WarningsRecorder() {
    setWarningEnabled(true);
}

std::vector<std::string> WarningsRecorder::lines() {
    const std::lock_guard<std::mutex> guard(state().mutex);
    return std::exchange(state().lines, {});
}

std::vector<std::string> WarningsRecorder::texts() {
    auto texts = lines();
    for (auto& text : texts)
        text.erase(0, lengthOfHead(text));
    return texts;
}

void WarningsRecorder::setWarningEnabled(bool enabled) {
    state().isEnabled = enabled;
}

int WarningsRecorder::createdLoggers() {
    return state().createdLoggers;
}

std::string WarningsRecorder::facility() {
    const std::lock_guard<std::mutex> guard(state().mutex);
    return state().facility;
}

int WarningsRecorder::otherCalls() {
    return state().otherCalls;
}

} // namespace cdxtest
