#ifndef SERVICE_SRC_OUTBUFFER_H
#define SERVICE_SRC_OUTBUFFER_H

#include <boost/asio/buffer.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace cdxservice {

/// Bytes on their way to a socket: small ones copied, large ones shared with their owner.
///
/// Filled, then written, then cleared; nothing is added while it is being written.
class OutBuffer {
public:
    /// From here on sharing costs less than copying.
    static constexpr std::size_t shareFrom = 2048;

    void append(std::string_view bytes) { m_text.append(bytes); }
    void append(std::string_view bytes, const std::shared_ptr<const void>& owner);
    /// For writers that append to a string.
    std::string& text() { return m_text; }

    bool empty() const { return m_text.empty() && m_shared.empty(); }
    std::size_t size() const { return m_text.size() + m_sharedSize; }
    /// About the memory that it holds: its own, and its part of what it shares with others.
    std::size_t held() const;
    /// What is still to be written, for asio; valid until the next call that is not const.
    struct View {
        using value_type = boost::asio::const_buffer;
        using const_iterator = const boost::asio::const_buffer*;
        const_iterator first, last;
        const_iterator begin() const { return first; }
        const_iterator end() const { return last; }
    };
    View view();
    /// Takes bytes that were written off the front of the view. False once nothing is left.
    bool consume(std::size_t bytes);
    /// Forgets what was written, and keeps the memory for what comes next.
    void clear();
    /// Gives memory back that only a burst needs. Empty.
    void shrink();

private:
    struct Shared {
        std::size_t textBefore; ///< How much of m_text comes before.
        std::string_view bytes;
        std::shared_ptr<const void> owner;
    };

    std::string m_text;
    std::vector<Shared> m_shared;
    std::size_t m_sharedSize = 0;
    std::vector<boost::asio::const_buffer> m_buffers;
    std::size_t m_firstBuffer = 0;
};

} // namespace cdxservice

#endif
