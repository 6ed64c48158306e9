#ifndef CDXMOROCLIENT_CDXLOG_H
#define CDXMOROCLIENT_CDXLOG_H

#include <oru/Log.h>

#include <ostream>

/// The library's own messages: one statement a line, `CDX_LOG(LogDebug) << "text" << value;`.
///
/// A statement costs two reads of a level when nobody wants its line: neither the line nor what is inserted into it is
/// evaluated then. Every line begins with the full signature of the operation that it is written in (in a lambda, the
/// lambda's own) and, but for CDX_LOG_NO_LINE, the source line. A statement without a text is an entry trace.
namespace zepclient {

/// Numbered as in syslog, lower is more severe.
enum LogLevel { LogAlert = 1, LogError = 3, LogNotice = 5, LogDebug = 7 };

/// How a line begins. Helpers take it from the operation in whose name they log.
struct LogHead {
    const char* signature;
    int line; ///< 0: without a line number
};

std::ostream& operator<<(std::ostream& stream, const LogHead& head);

/// Whether console or file wants lines of this level.
bool isLogged(LogLevel level);

/// Makes the two branches of a log statement of one type.
struct LogStatement {
    void operator&(std::ostream&) const {}
};

} // namespace zepclient

// What is inserted follows the macro, so its text stands without parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define CDX_LOG_UNDER(head, level) \
    !::zepclient::isLogged(level) ? void() : ::zepclient::LogStatement() & ::oru::Log().get(level) << (head)
// NOLINTEND(bugprone-macro-parentheses)

#define CDX_HEAD                      \
    ::zepclient::LogHead {            \
        __PRETTY_FUNCTION__, __LINE__ \
    }
#define CDX_HEAD_NO_LINE       \
    ::zepclient::LogHead {     \
        __PRETTY_FUNCTION__, 0 \
    }

#define CDX_LOG(level) CDX_LOG_UNDER((CDX_HEAD), level)
#define CDX_LOG_NO_LINE(level) CDX_LOG_UNDER((CDX_HEAD_NO_LINE), level)

#endif
