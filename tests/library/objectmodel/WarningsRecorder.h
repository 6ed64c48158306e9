#ifndef CDXTESTS_LIBRARY_OBJECTMODEL_WARNINGSRECORDER_H
#define CDXTESTS_LIBRARY_OBJECTMODEL_WARNINGSRECORDER_H

#include <string>
#include <vector>

namespace cdxtest {

/// Collects what the object model logs while it lives. The model keeps the first logger that it was given for the
/// whole program, so one factory is installed at load, for all tests of the program.
///
/// One at a time; every operation may be called from any thread.
class WarningsRecorder {
public:
    WarningsRecorder();
    ~WarningsRecorder();
    WarningsRecorder(const WarningsRecorder&) = delete;
    WarningsRecorder& operator=(const WarningsRecorder&) = delete;

    /// The lines since the last call, as they were handed to the logger.
    std::vector<std::string> lines();
    /// The lines since the last call without the head, "libCdxMoroClient/src/Cardataexchange:123 ". A line with another
    /// head stays as it is.
    std::vector<std::string> texts();

    /// What the logger's isWarning() says from now on; true at first.
    static void setWarningEnabled(bool enabled);
    /// How many loggers were made, and the name of the last one's facility.
    static int createdLoggers();
    static std::string facility();
    /// How often another operation than warning and isWarning was called.
    static int otherCalls();
};

} // namespace cdxtest

#endif
