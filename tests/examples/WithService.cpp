#include "WithService.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace cdxtest {

namespace {

const std::string addressInTheGuide = "http://127.0.0.1:8080";

std::string newFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "cdx-examples-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("cannot make " + name);
    return name;
}

} // namespace

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << "cannot read " << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

WithService::WithService(const cdxservice::ServerOptions& options) : m_service(options), m_folder(newFolder()) {
    m_service.start();
    m_vehicle = std::make_unique<Vehicle>(m_service.port());
    for (const char* document : {"registry.json", "service.json", "registry-mode.json"})
        place(document);
}

WithService::~WithService() {
    std::filesystem::remove_all(m_folder);
}

std::unique_ptr<Program> WithService::run(const std::string& name, const Program::Options& options) const {
    return std::make_unique<Program>(CDX_PROGRAMS "/" + name, m_folder, options);
}

std::unique_ptr<Program> WithService::run(const std::string& name) const {
    return run(name, {{"registry.json", "service.json"}, {}});
}

void WithService::place(const std::string& block) const {
    std::string text = contentOf(CDX_BLOCKS "/" + block);
    for (std::size_t at = 0; (at = text.find(addressInTheGuide, at)) != std::string::npos;)
        text.replace(at, addressInTheGuide.size(), m_service.uri());
    std::ofstream(m_folder + "/" + block) << text;
}

} // namespace cdxtest
