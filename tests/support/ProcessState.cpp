#include "ProcessState.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <map>
#include <optional>
#include <unistd.h>

namespace cdxtest {

namespace {

std::vector<int> numbersIn(const std::string& folder) {
    std::vector<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        numbers.push_back(std::stoi(entry.path().filename()));
    return numbers;
}

/// How often each other thread of this process has given the processor up; nothing unless all of them wait.
std::optional<std::map<int, std::string>> waits() {
    std::map<int, std::string> all;
    for (const int thread : threads()) {
        if (thread == ::gettid())
            continue;
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/status");
        bool isWaiting = false;
        for (std::string line; std::getline(file, line);) {
            isWaiting = isWaiting || line.rfind("State:\tS", 0) == 0;
            if (line.find("voluntary_ctxt_switches") != std::string::npos)
                all[thread] += line;
        }
        if (!isWaiting)
            return std::nullopt;
    }
    return all;
}

} // namespace

std::vector<int> openDescriptors(const std::string& process) {
    return numbersIn("/proc/" + process + "/fd");
}

std::vector<int> threads(const std::string& process) {
    return numbersIn("/proc/" + process + "/task");
}

bool hasThread(const std::string& name, const std::string& process) {
    constexpr std::size_t longestName = 15;
    const std::vector<int> all = threads(process);
    return std::any_of(all.begin(), all.end(), [&](int thread) {
        std::ifstream file("/proc/" + process + "/task/" + std::to_string(thread) + "/comm");
        std::string found;
        return std::getline(file, found) && found == name.substr(0, longestName);
    });
}

bool othersRest() {
    const auto before = waits();
    return before && before == waits();
}

long residentKib(const std::string& process) {
    std::ifstream status("/proc/" + process + "/status");
    long kibibytes = 0;
    for (std::string word; status >> word && word != "VmRSS:";) {
    }
    status >> kibibytes;
    return kibibytes;
}

long allocatedBytes() {
    const struct mallinfo2 heap = ::mallinfo2();
    return static_cast<long>(heap.uordblks + heap.hblkhd);
}

} // namespace cdxtest
