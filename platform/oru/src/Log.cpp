#include <oru/Log.h>

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <locale>
#include <memory>
#include <stdexcept>
#include <utility>

namespace oru {

namespace {

// Constant-initialised and trivially destroyed: they may be read before main and after it.
std::atomic<int> reportingLevel{3};
std::atomic<int> fileOutputLevel{-1};

using Output = spdlog::sinks::sink;

std::unique_ptr<spdlog::formatter> lineAsItIs() {
    return std::make_unique<spdlog::pattern_formatter>("%v");
}

/// Where lines go. The pointers are read and replaced atomically, so nobody logs with a lock held.
struct Outputs {
    std::shared_ptr<Output> console = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    std::shared_ptr<Output> file;
    std::shared_ptr<const Log::Sink> sink;

    Outputs() { console->set_formatter(lineAsItIs()); }
};

// Never destroyed: destructors that run at exit may log.
Outputs& outputs() {
    static Outputs& instance = *new Outputs;
    return instance;
}

void write(Output& output, const std::string& line) {
    output.log(spdlog::details::log_msg(spdlog::string_view_t(), spdlog::level::info, line));
    output.flush();
}

/// A program that this one starts shall not inherit the file, and a long line shall reach it in one write.
void prepareFile(const spdlog::filename_t&, std::FILE* file) {
    constexpr std::size_t lineRoom = 64 * 1024;
    ::fcntl(::fileno(file), F_SETFD, FD_CLOEXEC);
    std::setvbuf(file, nullptr, _IOFBF, lineRoom);
}

} // namespace

Log::Log() {
    m_line.imbue(std::locale::classic());
}

Log::~Log() {
    if (!m_isAsked)
        return;
    try {
        Outputs& to = outputs();
        if (const auto sink = std::atomic_load(&to.sink)) {
            (*sink)(m_level, m_line.str());
            return;
        }
        const bool isForConsole = m_level <= getReportingLevel();
        const auto file = m_level <= getFileOutputLevel() ? std::atomic_load(&to.file) : nullptr;
        if (!isForConsole && !file)
            return;
        const std::string line = m_line.str();
        if (isForConsole)
            write(*to.console, line);
        if (file)
            write(*file, line);
    } catch (...) {
        // A log that cannot be written has nowhere to say so, and must not take the program down.
    }
}

std::ostream& Log::get(int level) {
    m_level = level;
    m_isAsked = true;
    return m_line;
}

int Log::getReportingLevel() {
    return reportingLevel.load(std::memory_order_relaxed);
}

int Log::getFileOutputLevel() {
    return fileOutputLevel.load(std::memory_order_relaxed);
}

void Log::setReportingLevel(int level) {
    reportingLevel.store(level, std::memory_order_relaxed);
}

void Log::setFileOutputLevel(int level) {
    fileOutputLevel.store(level, std::memory_order_relaxed);
}

void Log::setOutputFile(const std::string& path) {
    std::shared_ptr<Output> file;
    if (!path.empty()) {
        spdlog::file_event_handlers handlers;
        handlers.after_open = prepareFile;
        try {
            file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, false, handlers);
        } catch (const spdlog::spdlog_ex& failure) {
            throw std::runtime_error("cannot open the log file \"" + path + "\": " + failure.what());
        }
        file->set_formatter(lineAsItIs());
    }
    std::atomic_store(&outputs().file, std::move(file));
}

void Log::setSink(Sink sink) {
    std::shared_ptr<const Sink> shared;
    if (sink)
        shared = std::make_shared<const Sink>(std::move(sink));
    // The former one goes here, outside the lock that guards the pointer.
    const auto former = std::atomic_exchange(&outputs().sink, std::move(shared));
}

} // namespace oru
