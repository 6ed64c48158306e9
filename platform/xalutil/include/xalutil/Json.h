#ifndef XALUTIL_JSON_H
#define XALUTIL_JSON_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace xalutil {

class JsonArray;
class JsonObject;

namespace detail {
struct JsonAccess;
}

/// A JSON object, either built member by member or a view into a parsed text.
///
/// A text is parsed once: the objects and arrays inside it are views that share the parsed text, never copies. Changing
/// a view detaches it first, so that nobody else who looks at the text sees the change.
///
/// Every typed read throws a std::exception that names the key, the type asked for and what is there instead: another
/// type, null, or nothing. Reads of one object may run on several threads at once; set() needs it alone.
class JsonObject {
public:
    JsonObject();
    ~JsonObject();
    JsonObject(const JsonObject&) = delete;
    JsonObject& operator=(const JsonObject&) = delete;

    /// Whether the key is there, also with null, which no typed read accepts.
    bool has(const std::string& key) const;

    std::string getString(const std::string& key) const;
    /// A number written without fraction and exponent (3.0 and 3e0 are not) that fits 64 bits with sign.
    std::int64_t getInt64(const std::string& key) const;
    bool getBool(const std::string& key) const;
    std::shared_ptr<JsonArray> getArray(const std::string& key) const;
    std::shared_ptr<JsonObject> getObject(const std::string& key) const;

    /// Sets a member; a key that is there already keeps its place. An array is copied in as it is now; an empty pointer
    /// sets an empty array.
    void set(const std::string& key, const std::string& value);
    void set(const std::string& key, const char* value);
    void set(const std::string& key, int value);
    void set(const std::string& key, long value);
    void set(const std::string& key, long long value);
    void set(const std::string& key, bool value);
    void set(const std::string& key, std::shared_ptr<const JsonArray> value);

    /// Compact JSON, keys in the order in which they were set.
    std::string toString() const;

    /// Whether both hold the same members with the same values, in whatever order.
    friend bool operator==(const JsonObject& left, const JsonObject& right);
    friend bool operator!=(const JsonObject& left, const JsonObject& right) { return !(left == right); }

private:
    friend struct detail::JsonAccess;

    std::shared_ptr<const void>
        m_object;          ///< what is read: shared with the parsed text that it lies in, or our own; null: empty
    void* m_own = nullptr; ///< the same object, once it is ours to change
    /// Where the last look-up ended: keys are mostly asked for in the order in which they stand.
    mutable std::atomic<std::uint32_t> m_lastFound{0};
};

/// A JSON array; what is said of JsonObject holds here too, with the index in the place of the key.
class JsonArray {
public:
    JsonArray();
    ~JsonArray();
    JsonArray(const JsonArray&) = delete;
    JsonArray& operator=(const JsonArray&) = delete;

    std::size_t size() const;
    std::string getString(std::size_t index) const;
    std::shared_ptr<JsonObject> getObject(std::size_t index) const;

    void add(const std::string& value);
    /// Copies the object in as it is now; an empty pointer adds an empty object.
    void add(std::shared_ptr<const JsonObject> value);

    std::string toString() const;

private:
    friend struct detail::JsonAccess;

    std::shared_ptr<const void> m_array;
    void* m_own = nullptr;
};

/// A parsed text, of whatever kind.
class JsonValue {
public:
    JsonValue(const JsonValue&);
    JsonValue(JsonValue&&) noexcept;
    JsonValue& operator=(const JsonValue&);
    JsonValue& operator=(JsonValue&&) noexcept;
    ~JsonValue();
    /// Throws a std::exception that says what the value is when it is no object (no array). Repeated calls give views
    /// of the same text.
    std::shared_ptr<JsonObject> asObject() const;
    std::shared_ptr<JsonArray> asArray() const;

private:
    friend struct detail::JsonAccess;
    explicit JsonValue(std::shared_ptr<const void> value);

    std::shared_ptr<const void> m_value; ///< shares the parsed text that it is the root of
};

/// Turns text into values: strict JSON in UTF-8, nested at most 128 deep; of a key that stands twice in an object the
/// last value holds. May be used from several threads at once.
class JsonParser {
public:
    ~JsonParser();
    /// Throws a std::exception with line, column (in bytes, both from 1) and reason when the text is malformed.
    JsonValue parse(const std::string& text) const;
};

class JsonFactory {
public:
    static std::shared_ptr<JsonObject> createJsonObject();
    static std::shared_ptr<JsonArray> createJsonArray();
    static std::shared_ptr<JsonParser> createJsonParser();
};

} // namespace xalutil

#endif
