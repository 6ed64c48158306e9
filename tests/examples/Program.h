#ifndef CDXTESTS_EXAMPLES_PROGRAM_H
#define CDXTESTS_EXAMPLES_PROGRAM_H

#include <support/Tcp.h>

#include <string>
#include <sys/types.h>
#include <vector>

namespace cdxtest {

/// A program as its user runs it: in a folder, with its arguments, reading what it writes to standard error line by
/// line. Its standard input stays open until endInput(); what it writes to standard output, which the framework fills,
/// goes to the file stdout.txt of the folder.
///
/// Every wait has a deadline that only a failing test meets, and then fails the test. A program that still runs when
/// its object goes is killed.
class Program {
public:
    struct Options {
        std::vector<std::string> arguments = {};
        std::vector<std::string> environment = {}; ///< NAME=VALUE, in addition to the test's own
    };

    /// Throws std::system_error when the program cannot be started.
    Program(const std::string& path, const std::string& folder, const Options& options);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// The first line with `part` in it that was not given before, waited for.
    std::string waitForLine(const std::string& part);

    void writeLine(const std::string& line) const;
    void endInput() { m_input.reset(); }
    void signal(int number) const;
    /// The exit status, waited for; -1 of a program that did not exit by itself.
    int waitForExit();
    /// Asks the program to end, as its user does, and gives its exit status.
    int terminate();

private:
    /// Waits for more of standard error; false at its end, or at the deadline.
    bool readMore();
    std::string everything() const;

    pid_t m_process = -1;
    Descriptor m_input;
    Descriptor m_errors;
    std::string m_partial;
    std::vector<std::string> m_lines;
};

} // namespace cdxtest

#endif
