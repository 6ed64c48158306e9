#ifndef XAL_CURRENTELEMENTS_H
#define XAL_CURRENTELEMENTS_H

#include <xal/Service.h>

#include <string>
#include <unordered_map>

namespace xal::detail {

/// The elements of one subscription as its holder knows them, in the order of their latest change.
///
/// A service that cannot resume a position starts from the beginning: restart() then keeps what is known, an element
/// that arrives again as it was is only confirmed, and finish() drops what was not sent again.
///
/// Belongs to one thread at a time.
class CurrentElements {
public:
    using Json = std::shared_ptr<xalutil::JsonObject>;

    explicit CurrentElements(MakeElement make) : m_make(make) {}

    /// Whether the holder is to be told: not of an element that a restart merely sent again. Throws, and leaves the
    /// list as it was, when the element has no id or cannot be built.
    bool change(const Json& json);
    /// Whether there was such an element.
    bool remove(const std::string& id);
    void restart();
    /// Whether something was dropped.
    bool finish();

    /// Latest change first.
    const ElementList& get() const { return m_elements; }

private:
    MakeElement m_make;
    ElementList m_elements;
    std::unordered_map<std::string, ElementList::iterator> m_byId;
    bool m_restarting = false;
};

} // namespace xal::detail

#endif
