#include <xal/Service.h>

namespace xal {

XalResponse::XalResponse(int status) : m_status(status) {}
XalResponse::~XalResponse() = default;
int XalResponse::getStatusCode() const {
    return m_status;
}

XalException::XalException(int status, const std::string& what) : XalResponse(status), std::runtime_error(what) {}

Subscription::~Subscription() = default;
IServiceConnection::~IServiceConnection() = default;

Service::Service(std::shared_ptr<IServiceConnection> connection) : m_connection(std::move(connection)) {}

} // namespace xal
