#include <xal/ServiceRegistry.h>

namespace xal {

IServiceRegistry::~IServiceRegistry() = default;
void IServiceRegistry::setRequestHeaders(std::shared_ptr<RequestHeaders>) {}

} // namespace xal
