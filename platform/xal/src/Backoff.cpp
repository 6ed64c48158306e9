#include "Backoff.h"

#include <memory>
#include <random>

namespace xal {
namespace {

constexpr std::chrono::milliseconds firstCap(200);
constexpr std::chrono::milliseconds highestCap(5000);
constexpr std::chrono::seconds provenAfter(5);
constexpr int doublingsToHighestCap = 5;

std::function<double()> systemRandom() {
    auto engine = std::make_shared<std::mt19937>(std::random_device{}());
    return [engine] { return std::uniform_real_distribution<double>(0, 1)(*engine); };
}

} // namespace

Backoff::Backoff(std::function<double()> random) : m_random(random ? std::move(random) : systemRandom()) {}

std::chrono::microseconds Backoff::next() {
    const std::chrono::microseconds cap =
        m_failures < doublingsToHighestCap ? firstCap * (1 << m_failures) : highestCap;
    if (m_failures < doublingsToHighestCap)
        ++m_failures;
    const auto half = cap / 2;
    return half + std::chrono::microseconds(
                      static_cast<std::chrono::microseconds::rep>(m_random() * static_cast<double>(half.count())));
}

void Backoff::noteConnection(std::chrono::steady_clock::duration lasted) {
    if (lasted >= provenAfter)
        m_failures = 0;
}

} // namespace xal
