#ifndef ORU_LOG_H
#define ORU_LOG_H

#include <functional>
#include <ostream>
#include <sstream>
#include <string>

namespace oru {

/// One log line under construction: `get` gives the stream, the destructor hands the finished line over in one piece.
///
/// Levels are ordered as in syslog, 0 (most severe) to 7 (debug). A line goes to the console (standard error) when its
/// level is at most the reporting level, and to the file when it is at most the file output level. Who builds lines
/// asks both levels first, so that a line nobody wants costs nothing:
///
///     if (oru::Log::getReportingLevel() >= 5 || oru::Log::getFileOutputLevel() >= 5)
///         oru::Log().get(5) << "text";
///
/// Threads: every static operation may be called from any thread at any time, also from destructors that run at exit:
/// what stands behind this class is never destroyed. One Log object belongs to one thread.
class Log {
public:
    /// Receives every line handed over, whatever the levels say, without a line end; called on the thread that logs,
    /// perhaps on several at once, with no lock held. It may log itself only if it ends the recursion. What it throws
    /// is lost with the line: a line is handed over by a destructor.
    using Sink = std::function<void(int level, const std::string& line)>;

    Log();
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    /// The stream of the line; `level` is the line's from now on. A Log whose stream was never asked for hands nothing
    /// over.
    std::ostream& get(int level);

    /// Level up to which lines reach the console; 3 unless changed.
    static int getReportingLevel();
    /// Level up to which lines reach the file; -1, nothing, unless changed.
    static int getFileOutputLevel();
    static void setReportingLevel(int level);
    static void setFileOutputLevel(int level);

    /// Where lines for the file go from now on: appended to `path`, each line flushed. An empty path closes the file.
    /// Throws std::runtime_error, naming the path and the reason, when it cannot be opened; the former file then stays.
    static void setOutputFile(const std::string& path);

    /// Takes the lines instead of console and file; an empty sink restores those. A sink that is replaced may still be
    /// running on another thread when this returns; it is kept alive until it has returned.
    static void setSink(Sink sink);

private:
    std::ostringstream m_line;
    int m_level = 0;
    bool m_isAsked = false; ///< the stream was asked for: there is a line to hand over
};

} // namespace oru

#endif
