#include "StrictJson.h"

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/value_stack.hpp>

#include <algorithm>
#include <charconv>

namespace cdxservice {

namespace json = boost::json;

namespace {

/// Builds the value and counts the members read, which an object that drops a repeated key no longer shows.
struct CountingBuilder {
    static constexpr std::size_t max_object_size = std::size_t(-1);
    static constexpr std::size_t max_array_size = std::size_t(-1);
    static constexpr std::size_t max_key_size = std::size_t(-1);
    static constexpr std::size_t max_string_size = std::size_t(-1);

    json::value_stack stack;
    std::size_t keys = 0;

    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_object_begin(json::error_code&) { return true; }
    bool on_object_end(std::size_t count, json::error_code&) {
        keys += count;
        stack.push_object(count);
        return true;
    }
    bool on_array_begin(json::error_code&) { return true; }
    bool on_array_end(std::size_t count, json::error_code&) {
        stack.push_array(count);
        return true;
    }
    bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
        stack.push_chars(part);
        return true;
    }
    bool on_key(json::string_view rest, std::size_t, json::error_code&) {
        stack.push_key(rest);
        return true;
    }
    bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
        stack.push_chars(part);
        return true;
    }
    bool on_string(json::string_view rest, std::size_t, json::error_code&) {
        stack.push_string(rest);
        return true;
    }
    bool on_number_part(json::string_view, json::error_code&) { return true; }
    bool on_int64(std::int64_t number, json::string_view, json::error_code&) {
        stack.push_int64(number);
        return true;
    }
    bool on_uint64(std::uint64_t number, json::string_view, json::error_code&) {
        stack.push_uint64(number);
        return true;
    }
    bool on_double(double number, json::string_view, json::error_code&) {
        stack.push_double(number);
        return true;
    }
    bool on_bool(bool flag, json::error_code&) {
        stack.push_bool(flag);
        return true;
    }
    bool on_null(json::error_code&) {
        stack.push_null();
        return true;
    }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }
};

json::value parse(std::string_view text, json::storage_ptr storage, std::size_t& keys, json::error_code& error) {
    json::parse_options options;
    options.max_depth = maxJsonDepth;
    json::basic_parser<CountingBuilder> parser(options);
    CountingBuilder& builder = parser.handler();
    builder.stack.reset(std::move(storage));
    const std::size_t read = parser.write_some(false, text.data(), text.size(), error);
    if (!error && read < text.size()) {
        error = json::error::extra_data;
    }
    keys = builder.keys;
    return error ? json::value() : builder.stack.release();
}

/// The text with no more than four digits in the exponent of a number: what is beyond a double remains so.
std::string withShortExponents(std::string_view text) {
    constexpr std::size_t keptDigits = 4;
    std::string out;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        out.push_back(text[i]);
        if (text[i] == '"') {
            inString = !inString;
        } else if (inString && text[i] == '\\' && i + 1 < text.size()) {
            out.push_back(text[++i]);
        } else if (!inString && (text[i] == 'e' || text[i] == 'E')) {
            const std::size_t sign = i + 1 < text.size() && (text[i + 1] == '+' || text[i + 1] == '-') ? 1 : 0;
            const auto end = std::min(text.find_first_not_of("0123456789", i + 1 + sign), text.size());
            out.append(text, i + 1, std::min(end - i - 1, sign + keptDigits));
            i = end - 1;
        }
    }
    return out;
}

std::size_t membersIn(const json::value& value) {
    std::size_t count = 0;
    if (const json::object* object = value.if_object()) {
        count = object->size();
        for (const auto& member : *object) {
            count += membersIn(member.value());
        }
    } else if (const json::array* array = value.if_array()) {
        for (const json::value& entry : *array) {
            count += membersIn(entry);
        }
    }
    return count;
}

template <class Number>
void writeNumber(std::string& out, Number number) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    out.append(digits, static_cast<std::size_t>(end - digits));
}

} // namespace

std::optional<json::value> readStrictJson(std::string_view text, json::storage_ptr storage, std::string& problem) {
    std::size_t keys = 0;
    json::error_code error;
    json::value value = parse(text, storage, keys, error);
    if (error == json::error::exponent_overflow) {
        // A limit of the parser's, not of JSON: such a number is well-formed, though nothing here takes one.
        error = {};
        value = parse(withShortExponents(text), storage, keys, error);
    }
    if (error) {
        problem = error.message();
        return std::nullopt;
    }
    if (membersIn(value) != keys) {
        problem = "a key stands twice in one object";
        return std::nullopt;
    }
    return value;
}

void writeJsonString(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    out.push_back('"');
    std::size_t plain = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\') {
            continue;
        }
        out.append(text, plain, i - plain);
        plain = i + 1;
        out.push_back('\\');
        switch (c) {
        case '"':
        case '\\':
            out.push_back(static_cast<char>(c));
            break;
        case '\b':
            out.push_back('b');
            break;
        case '\f':
            out.push_back('f');
            break;
        case '\n':
            out.push_back('n');
            break;
        case '\r':
            out.push_back('r');
            break;
        case '\t':
            out.push_back('t');
            break;
        default:
            out.append("u00");
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 15]);
        }
    }
    out.append(text, plain, std::string_view::npos);
    out.push_back('"');
}

void writeJsonInteger(std::string& out, std::int64_t number) {
    writeNumber(out, number);
}
void writeJsonInteger(std::string& out, std::uint64_t number) {
    writeNumber(out, number);
}

} // namespace cdxservice
