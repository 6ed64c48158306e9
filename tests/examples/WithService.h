#ifndef CDXTESTS_EXAMPLES_WITHSERVICE_H
#define CDXTESTS_EXAMPLES_WITHSERVICE_H

#include "Program.h"
#include "Vehicle.h"

#include <cdxservice/Server.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace cdxtest {

/// The content of a file; fails the test when it cannot be read.
std::string contentOf(const std::string& path);

/// A service on a free port, the vehicle's side of it, and a folder of the test's own that holds the guide's documents,
/// which name the service's address.
class WithService : public ::testing::Test {
protected:
    explicit WithService(const cdxservice::ServerOptions& options = {});
    ~WithService() override;

    /// One of this tree's programs, in the folder.
    std::unique_ptr<Program> run(const std::string& name, const Program::Options& options) const;
    /// One that takes the paths of the two documents.
    std::unique_ptr<Program> run(const std::string& name) const;
    /// A block of the guide, with the service's address in place of the guide's, as a file in the folder.
    void place(const std::string& block) const;

    const std::string& folder() const { return m_folder; }

    cdxservice::Server m_service;
    std::unique_ptr<Vehicle> m_vehicle;

private:
    std::string m_folder;
};

} // namespace cdxtest

#endif
