// The object model's frame: what all elements and descriptors do with their fields, written once for all of them. The
// warnings of a fill name this file and their line.
#include "CardataexchangeNames.h"

#include <cstdint>
#include <mutex>
#include <tuple>
#include <type_traits>

namespace xalobjects_GX2 {

namespace {

using Strings = std::vector<std::string>;

std::mutex& loggerMutex() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

} // namespace

/// What every element and descriptor class does, for whichever fields it has. It sees the private parts of all of them.
struct CardataexchangeService::Frame {
    /// A row of a field list. Its place in the tuple that all of a class's rows make is its number in the field enum.
    template <class Descriptor, class T>
    struct Field {
        std::string key;
        xalutil::Optional<T> Descriptor::*value;
    };

    /// Calls `visit` with every field and the bit that stands for it in a set of fields, in the field enum's order.
    template <class Descriptor, class Visit>
    static void forEachField(Visit visit) {
        std::apply(
            [&visit](const auto&... field) {
                static_assert(sizeof...(field) <= 32, "a set of fields has 32 bits");
                std::uint32_t bit = 1;
                ((visit(field, bit), bit <<= 1), ...);
            },
            Descriptor::Rows::all());
    }

    /// The service's and the resource's names are the same in all descriptors of a class: each starts as a copy of one,
    /// which costs no allocation.
    template <class Element>
    static const xal::XObjectDescriptor& blank() {
        static const auto& descriptor =
            *new xal::XObjectDescriptor(Element::getServiceName(), Element::getResourceName());
        return descriptor;
    }

    // Setting, and the filter. Nobody looks at the filter of most elements that are filled, so a fill notes in
    // m_pendingInFilter which fields the filter lacks, and whoever needs the filter has them added first, in the field
    // enum's order. Nobody may be able to tell: where adding later would give another result, what is pending is added
    // before. (A descriptor that lacks pairs is never constant: elements hand out copies, and those are asked once.)

    static void addToFilter(xal::XalFilter& filter, const std::string& key, const std::string& value) {
        filter.add(key, value);
    }
    static void addToFilter(xal::XalFilter& filter, const std::string& key, std::int64_t value) {
        filter.add(key, long{value});
    }
    static void addToFilter(xal::XalFilter& filter, const std::string& key, bool value) { filter.add(key, value); }
    static void addToFilter(xal::XalFilter& filter, const std::string& key, const Strings& value) {
        if (!value.empty())
            filter.add(key, value.front());
    }
    template <class Enum, class = std::enable_if_t<std::is_enum_v<Enum>>>
    static void addToFilter(xal::XalFilter& filter, const std::string& key, Enum value) {
        filter.add(key, detail::literalsOf(value).at(value));
    }

    template <class Descriptor>
    static void completeFilter(Descriptor& descriptor) {
        if (descriptor.m_pendingInFilter == 0)
            return;
        forEachField<Descriptor>([&descriptor](const auto& field, std::uint32_t bit) {
            if (descriptor.m_pendingInFilter & bit)
                addToFilter(descriptor.filter(), field.key, (descriptor.*field.value).getValue());
        });
        descriptor.m_pendingInFilter = 0;
    }

    /// `value` may be what the field holds already.
    template <class Descriptor, class T, class Value>
    static void set(Descriptor& descriptor, const Field<Descriptor, T>& field, Value&& value) {
        completeFilter(descriptor);
        auto& stored = descriptor.*field.value;
        if (!stored.isValid() || &stored.getValue() != &value)
            stored.setValue(std::forward<Value>(value));
        addToFilter(descriptor.filter(), field.key, stored.getValue());
    }

    template <class Descriptor, class T>
    static void setLeavingFilterPending(Descriptor& descriptor, const Field<Descriptor, T>& field, std::uint32_t bit,
                                        T&& value) {
        auto& pending = descriptor.m_pendingInFilter;
        bool addsToFilter = true;
        if constexpr (std::is_same_v<T, Strings>)
            addsToFilter = !value.empty();
        if (addsToFilter) {
            const bool comesAfterAllPending = pending < bit;
            if (!(pending & bit) && !comesAfterAllPending)
                completeFilter(descriptor);
            pending |= bit;
        } else if (pending & bit) {
            completeFilter(descriptor); // an empty array leaves what the one before it added
        }
        (descriptor.*field.value).setValue(std::forward<T>(value));
    }

    // Filling.

    /// `text` in pieces. The line is that of the calling statement.
    template <class... Piece>
    static void warn(int line, const Piece&... text) {
        createLoggerIfNeeded();
        if (!m_logger || !m_logger->isWarning())
            return;
        std::string message = "libCdxMoroClient/src/Cardataexchange:" + std::to_string(line) + " ";
        (message.append(text), ...);
        m_logger->warning(message);
    }

    template <class T>
    static T readScalar(const xalutil::JsonObject& json, const std::string& key) {
        if constexpr (std::is_same_v<T, bool>)
            return json.getBool(key);
        else if constexpr (std::is_same_v<T, std::int64_t>)
            return json.getInt64(key);
        else
            return json.getString(key);
    }

    template <class T>
    static constexpr const char* typeWord() {
        if constexpr (std::is_same_v<T, bool>)
            return "bool";
        else if constexpr (std::is_same_v<T, std::int64_t>)
            return "int64_t";
        else
            return "std::string";
    }

    static Strings readStrings(const xalutil::JsonObject& json, const std::string& key) {
        const auto array = json.getArray(key);
        const std::size_t size = array->size();
        Strings strings;
        strings.reserve(size);
        for (std::size_t index = 0; index < size; ++index) {
            try {
                strings.push_back(array->getString(index));
            } catch (const std::bad_alloc&) {
                throw;
            } catch (const std::exception& error) {
                warn(__LINE__, "could not get ", key, " as std::string, exception=", error.what());
            }
        }
        return strings;
    }

    template <class Descriptor, class T>
    static void fillField(Descriptor& descriptor, const Field<Descriptor, T>& field, std::uint32_t bit,
                          const xalutil::JsonObject& json) {
        if constexpr (std::is_same_v<T, Strings>) {
            setLeavingFilterPending(descriptor, field, bit, readStrings(json, field.key));
        } else if constexpr (std::is_enum_v<T>) {
            const std::string literal = json.getString(field.key);
            const auto& values = detail::valuesOf(T{});
            const auto found = values.find(literal.c_str());
            if (found == values.end() || found->first != literal) // the table's order stops at a null character
                warn(__LINE__, "unknown enum value in ", field.key);
            else
                setLeavingFilterPending(descriptor, field, bit, T{found->second});
        } else {
            try {
                setLeavingFilterPending(descriptor, field, bit, readScalar<T>(json, field.key));
            } catch (const std::bad_alloc&) {
                throw;
            } catch (const std::exception& error) {
                warn(__LINE__, "could not get ", field.key, " as ", typeWord<T>(), ", exception=", error.what());
            }
        }
    }

    /// `fillIdentity` is the template's own fill.
    template <class Descriptor, class FillIdentity>
    static void fill(Descriptor& descriptor, const xalutil::JsonObject& json, FillIdentity fillIdentity) {
        try {
            fillIdentity();
            forEachField<Descriptor>([&](const auto& field, std::uint32_t bit) {
                if (json.has(field.key))
                    fillField(descriptor, field, bit, json);
            });
        } catch (const std::bad_alloc&) {
            throw; // says nothing about the element, which is not to look as if it had fewer fields
        } catch (...) {
            warn(__LINE__, "could not fill object from json, exception occured");
        }
    }

    static xalutil::Optional<std::string> rawText(const std::shared_ptr<xalutil::JsonObject>& json,
                                                  const std::string& key) {
        return json && json->has(key) ? xalutil::Optional<std::string>(json->getString(key))
                                      : xalutil::Optional<std::string>();
    }

    // Writing out.

    template <class T>
    static void write(xalutil::JsonObject& json, const std::string& key, const T& value) {
        if constexpr (std::is_enum_v<T>) {
            json.set(key, detail::literalsOf(value).at(value));
        } else if constexpr (std::is_same_v<T, Strings>) {
            const auto array = xalutil::JsonFactory::createJsonArray();
            for (const auto& text : value)
                array->add(text);
            json.set(key, std::shared_ptr<const xalutil::JsonArray>(array));
        } else {
            json.set(key, value);
        }
    }

    template <class Descriptor>
    static std::shared_ptr<xalutil::JsonObject> writeOut(const Descriptor& descriptor,
                                                         std::shared_ptr<xalutil::JsonObject> json) {
        forEachField<Descriptor>([&](const auto& field, std::uint32_t) {
            if (const auto& value = descriptor.*field.value; value.isValid())
                write(*json, field.key, value.getValue());
        });
        return json;
    }
};

CardataexchangeService::CardataexchangeService(std::shared_ptr<xal::IServiceConnection> connection)
    : xal::Service(std::move(connection)) {}

const std::string& CardataexchangeService::getServiceName() {
    static const std::string& name = *new std::string("CarDataExchange");
    return name;
}

std::unique_ptr<xalutil::ILogger> CardataexchangeService::m_logger;

void CardataexchangeService::createLoggerIfNeeded() {
    const std::lock_guard<std::mutex> guard(loggerMutex());
    if (!m_logger)
        m_logger = xalutil::LoggerFactory::getDefaultLoggerFactory()->createLogger("Cardataexchange");
}

// The classes' operations, each row's and each class's; what they do stands above.

#define CDX_PLACE(Element, Type, key, Name) key,
#define CDX_ROW(Element, Type, key, Name) \
    , std::tuple(Frame::Field<Element##Descriptor, Type>{#key, &Element##Descriptor::m_##key})

#define CDX_DEFINE_GETTERS(Element, Type, key, Name)                                                      \
    auto CardataexchangeService::Element::get##Name() const->const xalutil::Optional<Type>& {             \
        return descriptor().get##Name();                                                                  \
    }                                                                                                     \
    auto CardataexchangeService::Element##Descriptor::get##Name() const->const xalutil::Optional<Type>& { \
        return m_##key;                                                                                   \
    }
#define CDX_DEFINE_SCALAR(Element, Type, key, Name)                                               \
    CDX_DEFINE_GETTERS(Element, Type, key, Name)                                                  \
    xalutil::Optional<std::string> CardataexchangeService::Element::get##Name##AsString() const { \
        return Frame::rawText(json(), #key);                                                      \
    }                                                                                             \
    void CardataexchangeService::Element##Descriptor::set##Name(const Type& value) {              \
        Frame::set(*this, std::get<Rows::key>(Rows::all()), value);                               \
    }
#define CDX_DEFINE_OTHER(Element, Type, key, Name)                             \
    CDX_DEFINE_GETTERS(Element, Type, key, Name)                               \
    void CardataexchangeService::Element##Descriptor::set##Name(Type value) {  \
        Frame::set(*this, std::get<Rows::key>(Rows::all()), std::move(value)); \
    }

// NOLINTBEGIN(bugprone-macro-parentheses): && is no operator here
#define CDX_DEFINE_VALUE_CLASS(Class)                                                        \
    CardataexchangeService::Class::Class(const Class& other) = default;                      \
    CardataexchangeService::Class::Class(Class&& other) noexcept = default;                  \
    auto CardataexchangeService::Class::operator=(const Class& other)->Class& = default;     \
    auto CardataexchangeService::Class::operator=(Class&& other) noexcept->Class& = default; \
    CardataexchangeService::Class::~Class() = default;
// NOLINTEND(bugprone-macro-parentheses)

#define CDX_DEFINE_ELEMENT(Element, FieldEnum, resource)                                                     \
    struct CardataexchangeService::Element##Descriptor::Rows {                                               \
        enum Place { FieldEnum##_LIST(CDX_PLACE, CDX_PLACE, Element) };                                      \
        static const auto& all() {                                                                           \
            static const auto& fields =                                                                      \
                *new auto(std::tuple_cat(std::tuple<>() FieldEnum##_LIST(CDX_ROW, CDX_ROW, Element)));       \
            return fields;                                                                                   \
        }                                                                                                    \
    };                                                                                                       \
                                                                                                             \
    CardataexchangeService::Element##Descriptor::Element##Descriptor()                                       \
        : xal::XObjectDescriptor(Frame::blank<Element>()) {}                                                 \
    CDX_DEFINE_VALUE_CLASS(Element##Descriptor)                                                              \
    std::shared_ptr<xalutil::JsonObject> CardataexchangeService::Element##Descriptor::getAsJson() const {    \
        return Frame::writeOut(*this, xal::XObjectDescriptor::getAsJson());                                  \
    }                                                                                                        \
    std::shared_ptr<xalutil::JsonObject> CardataexchangeService::Element##Descriptor::getAsXALBody() const { \
        return Frame::writeOut(*this, xal::XObjectDescriptor::getAsXALBody());                               \
    }                                                                                                        \
    const xal::XalFilter& CardataexchangeService::Element##Descriptor::getFilter() const {                   \
        Frame::completeFilter(const_cast<Element##Descriptor&>(*this));                                      \
        return xal::XObjectDescriptor::getFilter();                                                          \
    }                                                                                                        \
                                                                                                             \
    CardataexchangeService::Element::Element(std::shared_ptr<xalutil::JsonObject> json) : XObject(json) {    \
        if (json) /* whose identity the template has read: a second time it would read the same */           \
            Frame::fill(descriptor(), *json, [] {});                                                         \
    }                                                                                                        \
    CDX_DEFINE_VALUE_CLASS(Element)                                                                          \
    const std::string& CardataexchangeService::Element::getServiceName() {                                   \
        return CardataexchangeService::getServiceName();                                                     \
    }                                                                                                        \
    const std::string& CardataexchangeService::Element::getResourceName() {                                  \
        static const std::string& name = *new std::string(resource);                                         \
        return name;                                                                                         \
    }                                                                                                        \
    void CardataexchangeService::Element::fillFromJson(std::shared_ptr<xalutil::JsonObject> json) {          \
        if (json)                                                                                            \
            Frame::fill(descriptor(), *json, [&] { XObject::fillFromJson(json); });                          \
    }                                                                                                        \
    FieldEnum##_LIST(CDX_DEFINE_SCALAR, CDX_DEFINE_OTHER, Element)

CDX_DEFINE_ELEMENT(CdxData, CDXDATA_FIELDS, "cdxData")
CDX_DEFINE_ELEMENT(CdxClientState, CDXCLIENTSTATE_FIELDS, "cdxClientStates")
CDX_DEFINE_ELEMENT(CdxConfig, CDXCONFIG_FIELDS, "cdxConfig")
CDX_DEFINE_ELEMENT(CdxTrigger, CDXTRIGGER_FIELDS, "cdxTrigger")
CDX_DEFINE_ELEMENT(CdxMasterControl, CDXMASTERCONTROL_FIELDS, "cdxMasterControls")

} // namespace xalobjects_GX2
