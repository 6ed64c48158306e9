#ifndef CDX_BENCH_LOADCLIENT_H
#define CDX_BENCH_LOADCLIENT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// A kept HTTP connection to the embedded service that makes the changes a benchmark counts. Throws std::exception when
/// the service answers with anything but success.
class LoadClient {
public:
    explicit LoadClient(std::uint16_t port);
    ~LoadClient();

    /// Gives the answer's body.
    std::string request(const std::string& method, const std::string& target, const std::string& jsonBody);

    /// Sends all changes, each a target and a merge patch, in one go before it reads the answers.
    struct Change {
        std::string target, patch;
    };
    void patchAll(const std::vector<Change>& changes);

private:
    struct Connection;
    std::unique_ptr<Connection> m_connection;
};

#endif
