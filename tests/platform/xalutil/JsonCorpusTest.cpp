#include <xalutil/Json.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

/// Files whose names begin with y_ (must be taken), n_ (must be refused) or i_ (may be either).
constexpr const char* corpusVariable = "CDX_JSON_CORPUS";

bool isTaken(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    try {
        xalutil::JsonFactory::createJsonParser()->parse(text.str());
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

TEST(JsonCorpusTest, EveryFileIsTakenOrRefusedAsItsNameSays) {
    const char* const folder = std::getenv(corpusVariable);
    if (folder == nullptr)
        GTEST_SKIP() << corpusVariable << " does not name the folder of the parsing corpus";
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        if (name.size() < 2 || name[1] != '_' || entry.path().extension() != ".json")
            continue;
        ++files;
        const bool taken = isTaken(entry.path());
        if (name[0] == 'y' || name[0] == 'n') {
            EXPECT_EQ(taken, name[0] == 'y') << name;
        }
    }
    EXPECT_GT(files, 0);
}

} // namespace
