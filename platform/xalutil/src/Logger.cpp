#include <xalutil/Logger.h>

#include <cstdio>
#include <utility>

namespace xalutil {

namespace {

/// What a peer sent may stand in a message: it is not to begin a line of its own, nor to steer a terminal.
std::string onOneLine(const std::string& message) {
    std::string line;
    line.reserve(message.size());
    for (const char c : message) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte >= 0x20 && byte != 0x7f) || c == '\t') {
            line += c;
        } else {
            constexpr const char* digits = "0123456789abcdef";
            line += {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
        }
    }
    return line;
}

/// Warnings and worse, one line each in one write, to standard error.
class StandardErrorLogger : public ILogger {
public:
    explicit StandardErrorLogger(std::string facility) : m_facility(std::move(facility)) {}

    void trace(const std::string&) override {}
    void debug(const std::string&) override {}
    void info(const std::string&) override {}
    void warning(const std::string& message) override { write("WARN: ", message); }
    void error(const std::string& message) override { write("ERROR: ", message); }
    void system(const std::string& message) override { write("SYSTEM: ", message); }
    bool isTrace() const override { return false; }
    bool isDebug() const override { return false; }
    bool isInfo() const override { return false; }
    bool isWarning() const override { return true; }
    bool isError() const override { return true; }
    bool isSystem() const override { return true; }

    std::shared_ptr<ILogger> getSubFacilityLogger(const std::string& subFacility) const override {
        return std::make_shared<StandardErrorLogger>(m_facility + '.' + subFacility);
    }

private:
    void write(const char* severity, const std::string& message) const {
        const std::string line = severity + onOneLine(m_facility + ": " + message) + '\n';
        std::fwrite(line.data(), 1, line.size(), stderr);
    }

    const std::string m_facility;
};

class StandardErrorLoggerFactory : public LoggerFactory {
public:
    std::unique_ptr<ILogger> createLogger(const std::string& facility) override {
        return std::make_unique<StandardErrorLogger>(facility);
    }
};

/// Never destroyed, like what it makes: destructors that run at exit may log.
struct Defaults {
    const std::shared_ptr<LoggerFactory> builtIn = std::make_shared<StandardErrorLoggerFactory>();
    std::shared_ptr<LoggerFactory> current = builtIn; ///< read and replaced atomically
};

Defaults& defaults() {
    static Defaults& instance = *new Defaults;
    return instance;
}

} // namespace

ILogger::~ILogger() = default;

LoggerFactory::~LoggerFactory() = default;

std::shared_ptr<LoggerFactory> LoggerFactory::getDefaultLoggerFactory() {
    return std::atomic_load(&defaults().current);
}

void LoggerFactory::setDefaultLoggerFactory(std::shared_ptr<LoggerFactory> factory) {
    if (!factory)
        factory = defaults().builtIn;
    // The former one goes here, outside the lock that guards the pointer.
    const auto former = std::atomic_exchange(&defaults().current, std::move(factory));
}

} // namespace xalutil
