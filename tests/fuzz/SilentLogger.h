#ifndef CDXTESTS_FUZZ_SILENTLOGGER_H
#define CDXTESTS_FUZZ_SILENTLOGGER_H

#include <xalutil/Logger.h>

#include <cstddef>
#include <memory>
#include <string>

namespace cdxfuzz {

/// Says nothing, but has warnings made.
class SilentLogger : public xalutil::ILogger {
public:
    void trace(const std::string&) override {}
    void debug(const std::string&) override {}
    void info(const std::string&) override {}
    void warning(const std::string& message) override { m_length += message.size(); }
    void error(const std::string&) override {}
    void system(const std::string&) override {}
    bool isTrace() const override { return false; }
    bool isDebug() const override { return false; }
    bool isInfo() const override { return false; }
    bool isWarning() const override { return true; }
    bool isError() const override { return false; }
    bool isSystem() const override { return false; }
    std::shared_ptr<ILogger> getSubFacilityLogger(const std::string&) const override {
        return std::make_shared<SilentLogger>();
    }

private:
    std::size_t m_length = 0;
};

} // namespace cdxfuzz

#endif
