#include "Telling.h"

#include <xal/Service.h>

#include <utility>

namespace xal {
namespace {

thread_local bool hasBegun = false;

} // namespace

Telling::Telling() noexcept : m_before(std::exchange(hasBegun, false)) {}

Telling::~Telling() {
    hasBegun = m_before;
}

bool Telling::hasHandlerBegun() noexcept {
    return hasBegun;
}

void detail::handlerBegins() noexcept {
    hasBegun = true;
}

} // namespace xal
