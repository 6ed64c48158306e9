#include <xal/QueryOptions.h>

#include <algorithm>

namespace xal {

void XalFilter::add(const std::string& key, const std::string& value) {
    const auto same =
        std::find_if(m_pairs.begin(), m_pairs.end(), [&key](const auto& pair) { return pair.first == key; });
    if (same == m_pairs.end())
        m_pairs.emplace_back(key, value);
    else
        same->second = value;
}

void XalFilter::add(const std::string& key, const char* value) {
    add(key, std::string(value));
}

void XalFilter::add(const std::string& key, bool value) {
    add(key, std::string(value ? "true" : "false"));
}

void XalFilter::add(const std::string& key, int value) {
    add(key, std::to_string(value));
}

void XalFilter::add(const std::string& key, long value) {
    add(key, std::to_string(value));
}

} // namespace xal
