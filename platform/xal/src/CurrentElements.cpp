#include "CurrentElements.h"

#include "Telling.h"

#include <stdexcept>

namespace xal::detail {

bool CurrentElements::change(const Json& json) {
    if (!json)
        throw std::runtime_error("there is no element");
    std::string id = json->getString("id");
    if (id.empty())
        throw std::runtime_error("the id is empty");
    const auto known = m_byId.find(id);
    if (known == m_byId.end()) {
        m_elements.push_front(ListedElement{id, json, buildOrRefuse([&] { return m_make(json); }), true});
        try {
            m_byId.emplace(std::move(id), m_elements.begin());
        } catch (...) {
            m_elements.pop_front();
            throw;
        }
        return true;
    }
    ListedElement& listed = *known->second;
    const bool again = m_restarting && !listed.confirmed;
    // One that cannot be used says all the same that the service still has the element.
    listed.confirmed = true;
    const bool news = !again || !(*listed.json == *json);
    if (news) {
        listed.element = buildOrRefuse([&] { return m_make(json); });
        listed.json = json;
    }
    m_elements.splice(m_elements.begin(), m_elements, known->second);
    return news;
}

bool CurrentElements::remove(const std::string& id) {
    const auto known = m_byId.find(id);
    if (known == m_byId.end())
        return false;
    m_elements.erase(known->second);
    m_byId.erase(known);
    return true;
}

void CurrentElements::restart() {
    m_restarting = true;
    for (ListedElement& listed : m_elements)
        listed.confirmed = false;
}

bool CurrentElements::finish() {
    if (!m_restarting)
        return false;
    m_restarting = false;
    const auto before = m_elements.size();
    for (auto listed = m_elements.begin(); listed != m_elements.end();) {
        if (!listed->confirmed) {
            m_byId.erase(listed->id);
            listed = m_elements.erase(listed);
        } else {
            ++listed;
        }
    }
    return m_elements.size() != before;
}

} // namespace xal::detail
