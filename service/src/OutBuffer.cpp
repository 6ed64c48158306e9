#include "OutBuffer.h"

#include "Release.h"

#include <algorithm>

namespace cdxservice {

void OutBuffer::append(std::string_view bytes, const std::shared_ptr<const void>& owner) {
    if (bytes.size() < shareFrom) {
        m_text.append(bytes);
        return;
    }
    m_shared.push_back({m_text.size(), bytes, owner});
    m_sharedSize += bytes.size();
}

std::size_t OutBuffer::held() const {
    std::size_t held = m_text.capacity();
    for (const Shared& shared : m_shared) {
        held += shared.bytes.size() / static_cast<std::size_t>(std::max(1L, shared.owner.use_count()));
    }
    return held;
}

OutBuffer::View OutBuffer::view() {
    if (m_buffers.empty()) {
        std::size_t written = 0;
        for (const Shared& shared : m_shared) {
            if (shared.textBefore > written) {
                m_buffers.emplace_back(m_text.data() + written, shared.textBefore - written);
                written = shared.textBefore;
            }
            m_buffers.emplace_back(shared.bytes.data(), shared.bytes.size());
        }
        if (m_text.size() > written) {
            m_buffers.emplace_back(m_text.data() + written, m_text.size() - written);
        }
        m_firstBuffer = 0;
    }
    return {m_buffers.data() + m_firstBuffer, m_buffers.data() + m_buffers.size()};
}

bool OutBuffer::consume(std::size_t bytes) {
    while (m_firstBuffer < m_buffers.size()) {
        boost::asio::const_buffer& buffer = m_buffers[m_firstBuffer];
        if (bytes < buffer.size()) {
            buffer += bytes;
            return true;
        }
        bytes -= buffer.size();
        ++m_firstBuffer;
    }
    return false;
}

void OutBuffer::clear() {
    m_text.clear();
    m_shared.clear();
    m_buffers.clear();
    m_sharedSize = 0;
}

void OutBuffer::shrink() {
    constexpr std::size_t keptBytes = 4096;
    constexpr std::size_t keptEntries = 64;
    if (m_text.capacity() > keptBytes) {
        release(m_text);
    }
    if (m_buffers.capacity() > keptEntries) {
        release(m_shared);
        release(m_buffers);
    }
}

} // namespace cdxservice
