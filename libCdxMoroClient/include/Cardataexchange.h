#ifndef CARDATAEXCHANGE_H
#define CARDATAEXCHANGE_H

#include <xal/QueryOptions.h>
#include <xal/Service.h>
#include <xal/XObject.h>
#include <xal/XObjectDescriptor.h>
#include <xalutil/Json.h>
#include <xalutil/Logger.h>
#include <xalutil/Optional.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What the library shows to those who link it; everything else stays inside.
#define CDX_EXPORT [[gnu::visibility("default")]]

/// The service classes of the car data exchange service.
namespace xalobjects_GX2 {

// The fields of the five elements, and the literals of the three value enums. Each stands here once: from its row come
// its place in the field enum, its accessors, its storage, its name tables, and how it is filled, written out and
// filtered by. To add a field, add its row, in ascending byte order of the keys.
//
//   SCALAR(E, type, key, Name)   a string, number or flag: also has a raw-text getter; unreadable, it is left out alone
//   OTHER(E, type, key, Name)    an array of strings or a value enum: unreadable, it ends the fill
//
// `key` is the JSON key, `Name` the key as it stands in the accessors' names, and `E` what the user of the list passes.
// Times are in milliseconds since 1970 where nothing else is said.
#define CDXDATA_FIELDS_LIST(SCALAR, OTHER, E)                                                                         \
    SCALAR(E, std::string, authenticode, Authenticode)                                                                \
    OTHER(E, std::vector<std::string>, cdxClientDataReport, CdxClientDataReport) /* an entry a string, as supplied */ \
    SCALAR(E, std::string, correlationTag, CorrelationTag)                                                            \
    OTHER(E, CDXDATA_DELIVERYMODE, deliveryMode, DeliveryMode)                                                        \
    SCALAR(E, std::int64_t, elementId, ElementId)                                                                     \
    SCALAR(E, std::string, eventId, EventId)                                                                          \
    SCALAR(E, bool, isCallbackAbilityRequested, IsCallbackAbilityRequested)                                           \
    SCALAR(E, bool, isMixinOfUserIdRequested, IsMixinOfUserIdRequested)                                               \
    SCALAR(E, bool, isMixinOfVinRequested, IsMixinOfVinRequested)                                                     \
    SCALAR(E, std::string, messageId, MessageId)                                                                      \
    SCALAR(E, std::int64_t, timeToLive, TimeToLive) /* seconds after "timestamp" */                                   \
    SCALAR(E, std::int64_t, timestamp, Timestamp)                                                                     \
    SCALAR(E, std::int64_t, timezone, Timezone)                                                                       \
    SCALAR(E, std::string, version, Version)

#define CDXCLIENTSTATE_FIELDS_LIST(SCALAR, OTHER, E)            \
    SCALAR(E, std::string, canonicalName, CanonicalName)        \
    SCALAR(E, std::int64_t, elementId, ElementId)               \
    SCALAR(E, bool, isNewConfigRequested, IsNewConfigRequested) \
    SCALAR(E, bool, isShutdownRequested, IsShutdownRequested)   \
    OTHER(E, std::vector<std::string>, offeredDataType, OfferedDataType)

#define CDXCONFIG_FIELDS_LIST(SCALAR, OTHER, E)       \
    SCALAR(E, std::int64_t, elementId, ElementId)     \
    SCALAR(E, std::int64_t, expiryTime, ExpiryTime)   \
    SCALAR(E, std::int64_t, receiveTime, ReceiveTime) \
    SCALAR(E, std::string, recordBody, RecordBody)    \
    SCALAR(E, std::string, recordId, RecordId)        \
    SCALAR(E, std::string, spApplication, SpApplication)

#define CDXTRIGGER_FIELDS_LIST(SCALAR, OTHER, E)                              \
    SCALAR(E, std::string, correlationTag, CorrelationTag)                    \
    SCALAR(E, std::int64_t, elementId, ElementId)                             \
    SCALAR(E, std::int64_t, expirationTime, ExpirationTime)                   \
    SCALAR(E, bool, isTechnicalReceiptRequested, IsTechnicalReceiptRequested) \
    SCALAR(E, std::string, messageContent, MessageContent)                    \
    SCALAR(E, std::string, messageId, MessageId)                              \
    SCALAR(E, std::string, messageSignature, MessageSignature)                \
    SCALAR(E, std::string, messageType, MessageType)                          \
    SCALAR(E, std::int64_t, receiveTime, ReceiveTime)

#define CDXMASTERCONTROL_FIELDS_LIST(SCALAR, OTHER, E)                                                       \
    OTHER(E, CDXMASTERCONTROL_BACKENDCHANNELCONTROL, backendChannelControl, BackendChannelControl)           \
    OTHER(E, CDXMASTERCONTROL_DATADELIVERYRESULT, dataDeliveryResult, DataDeliveryResult)                    \
    SCALAR(E, std::int64_t, elementId, ElementId)                                                            \
    SCALAR(E, std::string, eventTicket, EventTicket) /* the "eventId" of the data message that it settles */ \
    OTHER(E, std::vector<std::string>, permittedDataType, PermittedDataType)

#define CDXDATA_DELIVERYMODE_LIST(LITERAL, E) \
    LITERAL(E, atMostOnce)                    \
    LITERAL(E, atLeastOnce)

#define CDXMASTERCONTROL_BACKENDCHANNELCONTROL_LIST(LITERAL, E) \
    LITERAL(E, okTalkNormal)                                    \
    LITERAL(E, pauseOtaDisconnected)                            \
    LITERAL(E, pauseMasterBusy)                                 \
    LITERAL(E, pauseDataPrivacyProtection)                      \
    LITERAL(E, stopProtocolViolation)

#define CDXMASTERCONTROL_DATADELIVERYRESULT_LIST(LITERAL, E) \
    LITERAL(E, okDelivered)                                  \
    LITERAL(E, failExpired)                                  \
    LITERAL(E, failOffline)                                  \
    LITERAL(E, failPrivacy)                                  \
    LITERAL(E, failSecurity)                                 \
    LITERAL(E, failUnknownClient)                            \
    LITERAL(E, failProtocolViolation)                        \
    LITERAL(E, failMessageTooBig)

// Every enum, with its name in the names of its two tables.
#define CDX_ENUMS(VALUES, FIELDS)                                                         \
    VALUES(CDXDATA_DELIVERYMODE, CdxDataDeliveryMode)                                     \
    VALUES(CDXMASTERCONTROL_BACKENDCHANNELCONTROL, CdxMasterControlBackendChannelControl) \
    VALUES(CDXMASTERCONTROL_DATADELIVERYRESULT, CdxMasterControlDataDeliveryResult)       \
    FIELDS(CDXDATA_FIELDS, CdxDataFields)                                                 \
    FIELDS(CDXCLIENTSTATE_FIELDS, CdxClientStateFields)                                   \
    FIELDS(CDXCONFIG_FIELDS, CdxConfigFields)                                             \
    FIELDS(CDXTRIGGER_FIELDS, CdxTriggerFields)                                           \
    FIELDS(CDXMASTERCONTROL_FIELDS, CdxMasterControlFields)

// What the rows turn into in the classes below.

#define CDX_EACH_FIELD(FieldEnum, SCALAR, OTHER, E) FieldEnum##_LIST(SCALAR, OTHER, E)

#define CDX_LITERAL_ENUMERATOR(Enum, literal) Enum##_##literal, /**< The literal of that name. */
#define CDX_FIELD_ENUMERATOR(Enum, Type, key, Name) CDX_LITERAL_ENUMERATOR(Enum, key)

#define CDX_GETTER(Element, Type, key, Name)                        \
    /** The field of that key; absent until it is set or filled. */ \
    const xalutil::Optional<Type>& get##Name() const;
#define CDX_GETTER_AND_RAW_TEXT(Element, Type, key, Name)                                                             \
    CDX_GETTER(Element, Type, key, Name)                                                                              \
    /** That key's string in the JSON object that the element was last filled from; absent where there is no such key \
     * or object. Throws a std::exception when it is no string. */                                                    \
    xalutil::Optional<std::string> get##Name##AsString() const;

#define CDX_SCALAR_ACCESSORS(Element, Type, key, Name) \
    CDX_GETTER(Element, Type, key, Name)               \
    /** Sets the field, and adds it to the filter. */  \
    void set##Name(const Type& value);
#define CDX_OTHER_ACCESSORS(Element, Type, key, Name)                                                           \
    CDX_GETTER(Element, Type, key, Name)                                                                        \
    /** Sets the field, and adds it to the filter: of an array its first string, if there is one. An enum value \
     * without a literal is set, but throws std::out_of_range. */                                               \
    void set##Name(Type value);

#define CDX_MEMBER(Element, Type, key, Name) xalutil::Optional<Type> m_##key;

// The fields that every element has, with its own before them in its field enum.
#define CDX_IDENTITY_LIST(LITERAL, E) \
    LITERAL(E, id)                    \
    LITERAL(E, name)                  \
    LITERAL(E, uri)

#define CDX_FIELD_ENUM(Enum, Name)                                                                                     \
    /** The fields of an element: its own in ascending byte order of their keys, then those that all elements have. */ \
    enum Enum : std::int32_t {                                                                                         \
        Enum##_LIST(CDX_FIELD_ENUMERATOR, CDX_FIELD_ENUMERATOR, Enum) CDX_IDENTITY_LIST(CDX_LITERAL_ENUMERATOR, Enum)  \
    };                                                                                                                 \
    CDX_NAME_TABLES(Enum, Name)

#define CDX_VALUE_ENUM(Enum, Name)                                                                                    \
    /** The values of a field; each one's literal is its JSON text. */                                                \
    enum Enum : std::int32_t { Enum##_LIST(CDX_LITERAL_ENUMERATOR, Enum) };                                           \
    CDX_NAME_TABLES(Enum, Name)                                                                                       \
    /** The literal and the number in parentheses; "unknown value(", the number of literals and ")" where there is no \
     * literal. */                                                                                                    \
    static std::string to_string(Enum value);                                                                         \
    /** "optional invalid" for an absent one. */                                                                      \
    static std::string to_string(const xalutil::Optional<Enum>& value);

#define CDX_NAME_TABLES(Enum, Name)                              \
    /** Each value's literal. Made at load, never changed. */    \
    static const std::map<Enum, const char*> map##Name##2String; \
    /** Each literal's value. Made at load, never changed. */    \
    static const std::map<const char*, Enum, cmp_str> mapString2##Name;

#define CDX_VALUE_CLASS(Class)                                                  \
    /** Copies all values. */                                                   \
    Class(const Class& other);                                                  \
    /** Takes all values over; what is left may be assigned to or destroyed. */ \
    Class(Class&& other) noexcept;                                              \
    /** Copies all values. */                                                   \
    Class& operator=(const Class& other);                                       \
    /** Takes all values over; what is left may be assigned to or destroyed. */ \
    Class& operator=(Class&& other) noexcept;                                   \
    ~Class() override;

#define CDX_DESCRIPTOR(Element, FieldEnum)                                                                         \
public:                                                                                                            \
    /** Fields of the resource's elements. */                                                                      \
    using FieldVector = std::vector<FieldEnum>;                                                                    \
    /** Fields to sort by, the most important first. */                                                            \
    using SortByVector = std::vector<std::pair<xal::QueryOptions::SORTBY_OPERATOR, FieldEnum>>;                    \
    /** What is done with the elements that fields point to. */                                                    \
    using ExpandLevel = xal::QueryOptions::EXPAND_LEVEL;                                                           \
                                                                                                                   \
    /** An empty one, for the service's resource. */                                                               \
    Element##Descriptor();                                                                                         \
    CDX_VALUE_CLASS(Element##Descriptor)                                                                           \
                                                                                                                   \
    /** The base's content and the fields that are set, in the field enum's order. Throws std::out_of_range for an \
     * enum value without a literal. */                                                                            \
    std::shared_ptr<xalutil::JsonObject> getAsJson() const override;                                               \
    /** The same with the base's content of a request's body. */                                                   \
    std::shared_ptr<xalutil::JsonObject> getAsXALBody() const override;                                            \
                                                                                                                   \
    /** The fields set so far as text, in the order in which they were first set. */                               \
    const xal::XalFilter& getFilter() const;                                                                       \
                                                                                                                   \
    /** Which fields to read. This and its overloads replace the options that they name and leave the others. */   \
    void setQueryOptions(const FieldVector& fields, ExpandLevel level);                                            \
    /** Also in which order. */                                                                                    \
    void setQueryOptions(const FieldVector& fields, ExpandLevel level, const FieldVector& expandFields,            \
                         const SortByVector& sortBy);                                                              \
    /** Also how many, after passing over the first `offset`. */                                                   \
    void setQueryOptions(const FieldVector& fields, ExpandLevel level, const FieldVector& expandFields,            \
                         const SortByVector& sortBy, long limit, long offset);                                     \
    /** The same, with the offset as a text that is passed on as it is. */                                         \
    void setQueryOptions(const FieldVector& fields, ExpandLevel level, const FieldVector& expandFields,            \
                         const SortByVector& sortBy, long limit, std::string& offset);                             \
    /** All but the offset. */                                                                                     \
    void setQueryOptionsLimit(const FieldVector& fields, ExpandLevel level, const FieldVector& expandFields,       \
                              const SortByVector& sortBy, long limit);                                             \
    /** All but the limit. */                                                                                      \
    void setQueryOptionsOffset(const FieldVector& fields, ExpandLevel level, const FieldVector& expandFields,      \
                               const SortByVector& sortBy, long offset);                                           \
    /** The same, with the offset as a text that is passed on as it is. */                                         \
    void setQueryOptionsOffset(const FieldVector& fields, ExpandLevel level, const FieldVector& expandFields,      \
                               const SortByVector& sortBy, std::string& offset);                                   \
    /** The fields' keys, in the given order. */                                                                   \
    static std::vector<std::string> get##Element##VectorAsStringVector(FieldVector fields);                        \
    /** The fields' keys with their operators, in the given order. */                                              \
    static std::vector<std::pair<xal::QueryOptions::SORTBY_OPERATOR, std::string>> getSortByFieldsAsStringVector(  \
        SortByVector sortBy);                                                                                      \
                                                                                                                   \
    CDX_EACH_FIELD(FieldEnum, CDX_SCALAR_ACCESSORS, CDX_OTHER_ACCESSORS, Element)                                  \
                                                                                                                   \
private:                                                                                                           \
    friend Frame;                                                                                                  \
    struct [[gnu::visibility("hidden")]] Rows;                                                                     \
    std::uint32_t m_pendingInFilter = 0;                                                                           \
    CDX_EACH_FIELD(FieldEnum, CDX_MEMBER, CDX_MEMBER, Element)

#define CDX_ELEMENT(Element, FieldEnum)                                                                                \
public:                                                                                                                \
    /** The descriptor class that goes with the element. */                                                            \
    using Desctype = Element##Descriptor;                                                                              \
                                                                                                                       \
    /** Unless `json` is empty, fills the element from it. Throws a std::exception when "id", "name" or "uri" is there \
     * and no string. */                                                                                               \
    explicit Element(std::shared_ptr<xalutil::JsonObject> json);                                                       \
    CDX_VALUE_CLASS(Element)                                                                                           \
                                                                                                                       \
    /** "CarDataExchange". */                                                                                          \
    static const std::string& getServiceName();                                                                        \
    /** The name of the resource that holds these elements. */                                                         \
    static const std::string& getResourceName();                                                                       \
                                                                                                                       \
    /** Keeps `json` and takes over the fields that it has; the others stay. What cannot be read is left out with a    \
     * warning, and nothing is thrown. */                                                                              \
    void fillFromJson(std::shared_ptr<xalutil::JsonObject> json) override;                                             \
                                                                                                                       \
    CDX_EACH_FIELD(FieldEnum, CDX_GETTER_AND_RAW_TEXT, CDX_GETTER, Element)

/// Orders C strings by their characters.
struct cmp_str {
    /// Whether `left` comes before `right` in byte order.
    bool operator()(const char* left, const char* right) const { return std::strcmp(left, right) < 0; }
};

/// The car data exchange service as the library's requests and subscriptions see it, with its element types.
///
/// Every resource has two classes. The element is what the service delivers: it is filled from a JSON object, and what
/// is delivered is constant and shared. The descriptor holds an element's values and is what a program builds to
/// create, change, delete or find one. Both are plain values, owned by one thread at a time; a field of either is
/// absent until it is set, and reading an absent one's value throws. No operation clears a field.
class CDX_EXPORT CardataexchangeService : public xal::Service {
    struct [[gnu::visibility("hidden")]] Frame;

public:
    /// Made by the framework when the service is there.
    explicit CardataexchangeService(std::shared_ptr<xal::IServiceConnection> connection);

    /// "CarDataExchange".
    static const std::string& getServiceName();

    CDX_ENUMS(CDX_VALUE_ENUM, CDX_FIELD_ENUM)

    /// What a data message holds; resource "cdxData".
    class CDX_EXPORT CdxDataDescriptor : public xal::XObjectDescriptor {
        CDX_DESCRIPTOR(CdxData, CDXDATA_FIELDS)
    };
    /// A data message that a client application delivers to the service.
    class CDX_EXPORT CdxData : public xal::XObject<CdxDataDescriptor> {
        CDX_ELEMENT(CdxData, CDXDATA_FIELDS)
    };

    /// What a client's state holds; resource "cdxClientStates".
    class CDX_EXPORT CdxClientStateDescriptor : public xal::XObjectDescriptor {
        CDX_DESCRIPTOR(CdxClientState, CDXCLIENTSTATE_FIELDS)
    };
    /// The state of a client application as the service sees it.
    class CDX_EXPORT CdxClientState : public xal::XObject<CdxClientStateDescriptor> {
        CDX_ELEMENT(CdxClientState, CDXCLIENTSTATE_FIELDS)
    };

    /// What a configuration record holds; resource "cdxConfig".
    class CDX_EXPORT CdxConfigDescriptor : public xal::XObjectDescriptor {
        CDX_DESCRIPTOR(CdxConfig, CDXCONFIG_FIELDS)
    };
    /// A configuration record for a service application.
    class CDX_EXPORT CdxConfig : public xal::XObject<CdxConfigDescriptor> {
        CDX_ELEMENT(CdxConfig, CDXCONFIG_FIELDS)
    };

    /// What a trigger message holds; resource "cdxTrigger".
    class CDX_EXPORT CdxTriggerDescriptor : public xal::XObjectDescriptor {
        CDX_DESCRIPTOR(CdxTrigger, CDXTRIGGER_FIELDS)
    };
    /// A trigger message.
    class CDX_EXPORT CdxTrigger : public xal::XObject<CdxTriggerDescriptor> {
        CDX_ELEMENT(CdxTrigger, CDXTRIGGER_FIELDS)
    };

    /// What a master control element holds; resource "cdxMasterControls".
    class CDX_EXPORT CdxMasterControlDescriptor : public xal::XObjectDescriptor {
        CDX_DESCRIPTOR(CdxMasterControl, CDXMASTERCONTROL_FIELDS)
    };
    /// The control state that governs the back-end channel, and the result of a data delivery.
    class CDX_EXPORT CdxMasterControl : public xal::XObject<CdxMasterControlDescriptor> {
        CDX_ELEMENT(CdxMasterControl, CDXMASTERCONTROL_FIELDS)
    };

private:
    static void createLoggerIfNeeded();
    static std::unique_ptr<xalutil::ILogger> m_logger;
};

// The object model's own source goes on with the lists.
#ifndef CDX_DEFINES_OBJECT_MODEL
#undef CDX_ENUMS
#undef CDXDATA_FIELDS_LIST
#undef CDXCLIENTSTATE_FIELDS_LIST
#undef CDXCONFIG_FIELDS_LIST
#undef CDXTRIGGER_FIELDS_LIST
#undef CDXMASTERCONTROL_FIELDS_LIST
#undef CDXDATA_DELIVERYMODE_LIST
#undef CDXMASTERCONTROL_BACKENDCHANNELCONTROL_LIST
#undef CDXMASTERCONTROL_DATADELIVERYRESULT_LIST
#undef CDX_IDENTITY_LIST
#endif
#undef CDX_EACH_FIELD
#undef CDX_LITERAL_ENUMERATOR
#undef CDX_FIELD_ENUMERATOR
#undef CDX_GETTER
#undef CDX_GETTER_AND_RAW_TEXT
#undef CDX_SCALAR_ACCESSORS
#undef CDX_OTHER_ACCESSORS
#undef CDX_MEMBER
#undef CDX_FIELD_ENUM
#undef CDX_VALUE_ENUM
#undef CDX_NAME_TABLES
#undef CDX_VALUE_CLASS
#undef CDX_DESCRIPTOR
#undef CDX_ELEMENT

} // namespace xalobjects_GX2

#endif
