#include "CdxLog.h"

namespace zepclient {

std::ostream& operator<<(std::ostream& stream, const LogHead& head) {
    stream << head.signature;
    if (head.line != 0)
        stream << ':' << head.line;
    return stream << ' ';
}

bool isLogged(LogLevel level) {
    return oru::Log::getReportingLevel() >= level || oru::Log::getFileOutputLevel() >= level;
}

} // namespace zepclient
