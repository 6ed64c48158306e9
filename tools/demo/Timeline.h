#ifndef CDXTOOLS_DEMO_TIMELINE_H
#define CDXTOOLS_DEMO_TIMELINE_H

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>

namespace cdxtools {

/// What the demo shows: one line for each thing that happens, with the time since the start, who, what, and the
/// document in short. Lines may come from any thread.
///
/// The framework's own diagnostics go to standard output too. The timeline keeps the terminal for itself: it takes over
/// standard output's place and sends whatever else is written there to a file.
class Timeline {
public:
    /// `chatterFile` takes what others write to standard output. Throws std::runtime_error when it cannot be opened.
    explicit Timeline(const std::string& chatterFile);
    ~Timeline();
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    void chapter(const std::string& title);
    void event(const std::string& who, const std::string& what, const std::string& document = {});
    void plain(const std::string& text);

private:
    std::mutex m_mutex;
    std::FILE* m_terminal;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace cdxtools

#endif
