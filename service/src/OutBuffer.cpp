#include "OutBuffer.h"

namespace cdxservice {

void OutBuffer::append(std::string_view bytes, const std::shared_ptr<const void>& owner) {
    if (bytes.size() < shareFrom) {
        m_text.append(bytes);
        return;
    }
    m_shared.push_back({m_text.size(), bytes, owner});
    m_sharedSize += bytes.size();
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
        m_text = std::string();
    }
    if (m_buffers.capacity() > keptEntries) {
        m_shared = {};
        m_buffers = {};
    }
}

} // namespace cdxservice
