#include "ProcessState.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace cdxtest {

namespace {

std::vector<int> numbersIn(const std::string& folder) {
    std::vector<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        numbers.push_back(std::stoi(entry.path().filename()));
    return numbers;
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

long residentKib(const std::string& process) {
    std::ifstream status("/proc/" + process + "/status");
    long kibibytes = 0;
    for (std::string word; status >> word && word != "VmRSS:";) {
    }
    status >> kibibytes;
    return kibibytes;
}

} // namespace cdxtest
