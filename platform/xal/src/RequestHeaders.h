#ifndef XAL_REQUESTHEADERS_H
#define XAL_REQUESTHEADERS_H

#include <xalutil/HttpSession.h>
#include <xalutil/Logger.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace xal {

/// What every request, question and upgrade carries besides its own headers. Any thread.
class RequestHeaders {
public:
    using Map = std::map<std::string, std::shared_ptr<std::string>>;

    /// `clientName` is sent as "User-Agent", where the map names none.
    explicit RequestHeaders(std::string clientName) : m_clientName(std::move(clientName)) {}

    /// The map is read without a lock from now on; to change what is sent, set another one.
    void set(std::shared_ptr<const Map> map);

    /// What the map holds now; and, where that names no "Authorization" and the environment variable XAL_TOKEN_FILE is
    /// set, the token that its file holds now. Left out and logged is what would end the header early or contradict
    /// what the message's framing says of itself.
    xalutil::HttpHeaders collect(xalutil::ILogger& logger) const;
    /// The same for a request over a connection that may be kept: the token is the one that the file held when the
    /// connection was made. What the request has already gives way to the map's of that name. The logger must outlive
    /// the request.
    void addTo(xalutil::HttpRequest& request, xalutil::ILogger& logger) const;

private:
    bool addMap(xalutil::HttpHeaders& headers, xalutil::ILogger& logger) const;

    const std::string m_clientName;
    mutable std::mutex m_mutex;
    std::shared_ptr<const Map> m_map; ///< guarded by m_mutex
};

} // namespace xal

#endif
