#ifndef XAL_XOBJECT_H
#define XAL_XOBJECT_H

#include <xal/XObjectDescriptor.h>
#include <xalutil/Json.h>
#include <xalutil/Optional.h>

#include <memory>
#include <string>
#include <utility>

namespace xal {

/// Anything that can be read from a JSON text. The order of the virtual operations is part of the interface.
class IXObject {
public:
    /// Throws a std::exception when the text is no JSON object.
    virtual void parseJson(const std::string& text) = 0;
    virtual ~IXObject();

protected:
    IXObject() = default;
    IXObject(const IXObject&) = default;
    IXObject(IXObject&&) = default;
    IXObject& operator=(const IXObject&) = default;
    IXObject& operator=(IXObject&&) = default;
};

namespace detail {
/// The part of `uri` after its last slash or backslash; all of it where it has neither.
std::string lastPartOf(const std::string& uri);
std::shared_ptr<xalutil::JsonObject> parseObject(const std::string& text);
/// Hands those of id, name and uri that `json` has to the descriptor. Throws when one is no string; what was read
/// before it stays.
void readIdentity(const xalutil::JsonObject& json, XObjectDescriptor& descriptor);
} // namespace detail

/// An element as a service delivers it: a descriptor that holds its values, and the JSON object that it was last filled
/// from. `D` is the resource's descriptor class.
///
/// A plain value. What the framework delivers is constant and shared.
template <class D>
class XObject : public IXObject {
public:
    XObject() = default;
    explicit XObject(const D& descriptor) : m_descriptor(descriptor) {}
    /// Unless `json` is empty, reads the identity from it, unguarded: an identity of the wrong type throws.
    explicit XObject(std::shared_ptr<xalutil::JsonObject> json) { fillIdentity(std::move(json)); }

    void parseJson(const std::string& text) override { fillFromJson(detail::parseObject(text)); }
    ~XObject() override = default;
    XObject(const XObject&) = default;
    XObject(XObject&&) = default;
    XObject& operator=(const XObject&) = default;
    XObject& operator=(XObject&&) = default;

    virtual xalutil::Optional<std::string> getId() const { return m_descriptor.getId(); }
    virtual xalutil::Optional<std::string> getUri() const { return m_descriptor.getUri(); }
    virtual xalutil::Optional<std::string> getName() const { return m_descriptor.getName(); }
    /// Keeps `json` and reads the identity from it; an empty pointer changes nothing.
    virtual void fillFromJson(std::shared_ptr<xalutil::JsonObject> json) { fillIdentity(std::move(json)); }

    virtual D getDescriptor() const { return handOut(m_descriptor); }
    /// A holder of a copy of the descriptor, with `uri` as its uri and the last part of it as its id, and without JSON.
    virtual std::shared_ptr<XObject<D>> copyWithIdFromUri(const std::string& uri) const {
        D copy = handOut(m_descriptor);
        copy.setId(detail::lastPartOf(uri));
        copy.setUri(uri);
        return std::make_shared<XObject<D>>(copy);
    }

protected:
    const D& descriptor() const { return m_descriptor; }
    D& descriptor() { return m_descriptor; }
    /// What it was last filled from; empty before.
    const std::shared_ptr<xalutil::JsonObject>& json() const { return m_json; }

private:
    // A descriptor class may put its filter together only when it is asked for it, by hiding getFilter(): what leaves
    // the element is asked once, so that it is complete also for those who know only the base class.
    static D handOut(const D& descriptor) {
        D copy(descriptor);
        static_cast<void>(copy.getFilter());
        return copy;
    }

    void fillIdentity(std::shared_ptr<xalutil::JsonObject> json) {
        if (!json)
            return;
        m_json = std::move(json);
        detail::readIdentity(*m_json, m_descriptor);
    }

    std::shared_ptr<xalutil::JsonObject> m_json;
    D m_descriptor;
};

} // namespace xal

#endif
