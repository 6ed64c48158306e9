#include "Exchange.h"

#include <cdxservice/Store.h>

#include <utility>

namespace cdxservice {

Store::Store(std::unique_ptr<StoreBackend> backend) : Store(std::move(backend), Options()) {}

Store::Store(std::unique_ptr<StoreBackend> backend, const Options& options)
    : m_exchange(std::make_unique<Exchange>(std::move(backend), options.keptRemovals)) {}

Store::~Store() = default;

const std::string& Store::epoch() const {
    return m_exchange->epoch();
}

} // namespace cdxservice
