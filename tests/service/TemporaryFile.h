#ifndef CDXTESTS_SERVICE_TEMPORARYFILE_H
#define CDXTESTS_SERVICE_TEMPORARYFILE_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace cdxservice {

/// A file that goes with its object.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content) {
        std::string pattern = (std::filesystem::temp_directory_path() / "cdx-XXXXXX").string();
        const int descriptor = ::mkstemp(pattern.data());
        ::close(descriptor);
        m_path = pattern;
        std::ofstream(m_path) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(m_path); }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace cdxservice

#endif
