#ifndef CDXTESTS_SUPPORT_SCARCE_SCARCEMEMORY_H
#define CDXTESTS_SUPPORT_SCARCE_SCARCEMEMORY_H

#include <cstddef>

/// Memory that is refused to order: a program that links this has its own operator new, and its own aligned_alloc,
/// from which Asio takes what it keeps for handlers.
namespace cdxtest::scarce {

/// From now on the `first`-th piece of memory that is asked for, and those behind it, `count` in all, are refused.
/// Pieces are counted over all threads, but not those of a thread that is spared.
void refuse(std::size_t first, std::size_t count);
/// Nothing is refused any more; how many pieces were asked for since refuse().
std::size_t end();
/// Whether something was refused since the last refuse().
bool wasRefused();

/// While it lives, what this thread asks for is neither counted nor refused.
class Spared {
public:
    explicit Spared(bool isSpared = true);
    ~Spared();
    Spared(const Spared&) = delete;
    Spared& operator=(const Spared&) = delete;

private:
    bool m_before;
};

} // namespace cdxtest::scarce

#endif
