#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace cdxtest {

namespace {

struct Pipe {
    Descriptor read, write;
};

void check(int error, const std::string& what) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

Pipe makePipe() {
    int ends[2];
    check(::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

Program::Program(const std::string& path, const std::string& folder, const Options& options) {
    Pipe input = makePipe();
    Pipe errors = makePipe();
    const std::string output = folder + "/stdout.txt";

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    posix_spawn_file_actions_adddup2(&actions, input.read.get(), STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, errors.write.get(), STDERR_FILENO);

    std::vector<std::string> arguments = {path};
    arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
    std::vector<std::string> environment = options.environment; // first, since the first of a name counts
    for (char** variable = ::environ; *variable != nullptr; ++variable)
        environment.emplace_back(*variable);
    const int error = ::posix_spawn(&m_process, path.c_str(), &actions, nullptr, pointersTo(arguments).data(),
                                    pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    check(error, path);
    m_input = std::move(input.write);
    m_errors = std::move(errors.read);
}

Program::~Program() {
    if (m_process > 0) {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
}

std::string Program::waitForLine(const std::string& part) {
    for (;;) {
        const auto found = std::find_if(m_lines.begin(), m_lines.end(),
                                        [&](const std::string& line) { return line.find(part) != std::string::npos; });
        if (found != m_lines.end()) {
            std::string line = *found;
            m_lines.erase(found);
            return line;
        }
        if (!readMore()) {
            ADD_FAILURE() << "no line with \"" << part << "\"; these are left:\n" << everything();
            return {};
        }
    }
}

void Program::writeLine(const std::string& line) const {
    const std::string whole = line + "\n";
    EXPECT_EQ(::write(m_input.get(), whole.data(), whole.size()), static_cast<ssize_t>(whole.size()));
}

void Program::signal(int number) const {
    ::kill(m_process, number);
}

int Program::waitForExit() {
    while (readMore()) {
    }
    if (m_errors) {
        ADD_FAILURE() << "the program did not end; these lines are left:\n" << everything();
        return -1;
    }
    int status = 0;
    if (::waitpid(m_process, &status, 0) != m_process)
        return -1;
    m_process = -1;
    const bool exited = WIFEXITED(status);
    EXPECT_TRUE(exited) << "ended by signal " << WTERMSIG(status);
    if (status != 0) // whether that is a failure is the test's to say, but then the reason is among the lines
        std::cout << everything() << std::endl;
    return exited ? WEXITSTATUS(status) : -1;
}

int Program::terminate() {
    signal(SIGTERM);
    return waitForExit();
}

bool Program::readMore() {
    if (!m_errors)
        return false;
    pollfd readable = {m_errors.get(), POLLIN, 0};
    if (::poll(&readable, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) <= 0)
        return false;
    char bytes[4096];
    const ssize_t count = ::read(m_errors.get(), bytes, sizeof bytes);
    if (count <= 0) {
        m_errors.reset();
        return false;
    }
    m_partial.append(bytes, static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = m_partial.find('\n')) != std::string::npos; m_partial.erase(0, end + 1))
        m_lines.push_back(m_partial.substr(0, end));
    return true;
}

std::string Program::everything() const {
    std::string text;
    for (const std::string& line : m_lines)
        text += line + "\n";
    return text + m_partial;
}

} // namespace cdxtest
