#include "ProcessState.h"

#include <filesystem>
#include <fstream>

namespace cdxtest {

std::vector<int> openDescriptors(const std::string& process) {
    std::vector<int> descriptors;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + process + "/fd"))
        descriptors.push_back(std::stoi(entry.path().filename()));
    return descriptors;
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
