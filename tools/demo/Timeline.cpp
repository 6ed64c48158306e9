#include "Timeline.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace cdxtools {

namespace {

constexpr std::size_t longestDocument = 110;

std::string inShort(const std::string& document) {
    return document.size() <= longestDocument ? document : document.substr(0, longestDocument - 3) + "...";
}

} // namespace

Timeline::Timeline(const std::string& chatterFile) {
    const int chatter = ::open(chatterFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (chatter < 0)
        throw std::runtime_error("cannot open " + chatterFile +
                                 " for the framework's diagnostics: " + std::strerror(errno));
    const int terminal = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    m_terminal = terminal < 0 ? nullptr : ::fdopen(terminal, "w");
    if (m_terminal == nullptr || ::dup2(chatter, STDOUT_FILENO) < 0)
        throw std::runtime_error(std::string("cannot put standard output aside: ") + std::strerror(errno));
    ::close(chatter);
}

Timeline::~Timeline() {
    std::fflush(stdout);
    ::dup2(::fileno(m_terminal), STDOUT_FILENO);
    std::fclose(m_terminal);
}

void Timeline::chapter(const std::string& title) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::fprintf(m_terminal, "\n%s\n", title.c_str());
    std::fflush(m_terminal);
}

void Timeline::event(const std::string& who, const std::string& what, const std::string& document) {
    const std::chrono::duration<double> since = std::chrono::steady_clock::now() - m_start;
    std::lock_guard<std::mutex> lock(m_mutex);
    std::fprintf(m_terminal, "%7.3f s  %-12s %-44s %s\n", since.count(), who.c_str(), what.c_str(),
                 inShort(document).c_str());
    std::fflush(m_terminal);
}

void Timeline::plain(const std::string& text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::fprintf(m_terminal, "%s\n", text.c_str());
    std::fflush(m_terminal);
}

} // namespace cdxtools
