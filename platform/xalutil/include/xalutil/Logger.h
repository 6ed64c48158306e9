#ifndef XALUTIL_LOGGER_H
#define XALUTIL_LOGGER_H

#include <memory>
#include <string>

namespace xalutil {

/// Where one facility of the framework writes its diagnostics. A caller asks isX() before it builds a text.
///
/// Every operation may be called from any thread. The order of the virtual operations is part of the interface.
class ILogger {
public:
    virtual ~ILogger();
    virtual void trace(const std::string& message) = 0;
    virtual void debug(const std::string& message) = 0;
    virtual void info(const std::string& message) = 0;
    virtual void warning(const std::string& message) = 0;
    virtual void error(const std::string& message) = 0;
    virtual void system(const std::string& message) = 0;
    virtual bool isTrace() const = 0;
    virtual bool isDebug() const = 0;
    virtual bool isInfo() const = 0;
    virtual bool isWarning() const = 0;
    virtual bool isError() const = 0;
    virtual bool isSystem() const = 0;
    /// A logger of its own for a part of this facility; never empty.
    virtual std::shared_ptr<ILogger> getSubFacilityLogger(const std::string& subFacility) const = 0;
};

/// Makes loggers. A process has one default factory, for whoever was handed none.
class LoggerFactory {
public:
    virtual ~LoggerFactory();
    virtual std::unique_ptr<ILogger> createLogger(const std::string& facility) = 0;

    /// The one set last, else the built-in one, which writes warnings and worse to standard error. Never empty, and the
    /// built-in one is never destroyed. Thread-safe.
    static std::shared_ptr<LoggerFactory> getDefaultLoggerFactory();
    /// Replaces the default factory; an empty pointer restores the built-in one. Thread-safe. Loggers made before stay
    /// as they are.
    static void setDefaultLoggerFactory(std::shared_ptr<LoggerFactory> factory);
};

} // namespace xalutil

#endif
