#ifndef SERVICE_SRC_CHUNKDECODER_H
#define SERVICE_SRC_CHUNKDECODER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace cdxservice {

/// Takes the chunked transfer coding off a request's body, as it comes in. Chunk extensions and trailers are checked
/// and dropped.
class ChunkDecoder {
public:
    enum class State { Reading, Complete, Malformed, TooLarge };

    explicit ChunkDecoder(std::size_t maxBodyBytes) : m_maxBodyBytes(maxBodyBytes) {}

    /// Takes `used` bytes of `input` in: all of them unless the body ends or is bad. TooLarge is told before the chunk
    /// that makes it so is read.
    State read(std::string_view input, std::size_t& used);

    const std::string& body() const { return m_body; }
    /// What comes is still checked, but no longer kept.
    void discard();

private:
    enum class Phase { Size, Data, DataReturn, DataEnd, Trailer };

    State takeSizeLine();
    bool takeLineByte(char c);

    std::size_t m_maxBodyBytes;
    Phase m_phase = Phase::Size;
    std::string m_line;
    bool m_lineEnded = false;
    std::size_t m_trailerBytes = 0;
    std::uint64_t m_remaining = 0;
    std::uint64_t m_total = 0;
    bool m_discarding = false;
    std::string m_body;
};

} // namespace cdxservice

#endif
