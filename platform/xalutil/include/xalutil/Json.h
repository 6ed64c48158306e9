#pragma once

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
    void set(const std::string& key, std::string&& value);
    void set(const std::string& key, const char* value);
    void set(const std::string& key, int value);
    void set(const std::string& key, long value);
    void set(const std::string& key, long long value);
    void set(const std::string& key, bool value);
    void set(const std::string& key, std::shared_ptr<const JsonArray> value);

    /// Compact JSON, keys in the order in which they were set.
    std::string toString() const;

private:
    friend struct detail::JsonAccess;
    struct Data;

    std::shared_ptr<const void> m_text; ///< keeps the parsed text alive that m_object lies in; empty when it is our own
    const void* m_object = nullptr;     ///< the object that is read
    std::unique_ptr<Data> m_own;        ///< set once this object holds members of its own
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
    struct Data;

    std::shared_ptr<const void> m_text;
    const void* m_array = nullptr;
    std::unique_ptr<Data> m_own;
};

/// A parsed text, of whatever kind.
class JsonValue {
public:
    ~JsonValue();
    /// Throws a std::exception that says what the value is when it is no object (no array). Repeated calls give views
    /// of the same text.
    std::shared_ptr<JsonObject> asObject() const;
    std::shared_ptr<JsonArray> asArray() const;

private:
    friend struct detail::JsonAccess;
    JsonValue() = default;

    std::shared_ptr<const void> m_text;
    const void* m_value = nullptr;
};

/// Turns text into values: strict JSON in UTF-8, nested at most 128 deep. May be used from several threads at once.
class JsonParser {
public:
    ~JsonParser();
    /// Throws a std::exception with line, column and reason when the text is malformed.
    JsonValue parse(const std::string& text) const;
};

class JsonFactory {
public:
    static std::shared_ptr<JsonObject> createJsonObject();
    static std::shared_ptr<JsonArray> createJsonArray();
    static std::shared_ptr<JsonParser> createJsonParser();
};

} // namespace xalutil
