#include "Query.h"

#include "HttpText.h"
#include "Utf8.h"

#include <algorithm>

namespace cdxservice {

namespace {

Problem bad(std::string detail) {
    return {400, std::move(detail)};
}

bool isUtf8(std::string_view text) {
    Utf8Checker checker;
    return checker.take(text) && checker.complete();
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const auto end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

/// Saturates: a number that no list is as long as is still a number.
std::optional<std::uint64_t> wholeNumber(std::string_view digits) {
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    constexpr std::uint64_t highest = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t number = 0;
    for (const char digit : digits) {
        const std::uint64_t units = static_cast<std::uint64_t>(digit - '0');
        number = number > (highest - units) / 10 ? highest : number * 10 + units;
    }
    return number;
}

bool valueMatches(const Value& value, const std::string& wanted) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text == wanted;
    }
    if (const auto* list = std::get_if<std::vector<std::string>>(&value)) {
        return std::find(list->begin(), list->end(), wanted) != list->end();
    }
    if (std::holds_alternative<std::monostate>(value)) {
        return false;
    }
    std::string text;
    writeValue(text, value);
    return text == wanted;
}

} // namespace

std::variant<Query, Problem> Query::parse(const ResourceSchema& schema, std::string_view query) {
    Query result;
    if (query.empty()) {
        return result;
    }
    std::vector<std::string> seen;
    for (const std::string_view pair : split(query, '&')) {
        const auto equals = pair.find('=');
        const auto key = percentDecoded(pair.substr(0, equals));
        const auto value =
            percentDecoded(equals == std::string_view::npos ? std::string_view() : pair.substr(equals + 1));
        if (!key || !value) {
            return bad("a percent sign begins no escape in the query");
        }
        if (equals == std::string_view::npos) {
            return bad("the query holds a key without a value");
        }
        // What is named in an answer has to be text.
        if (!isUtf8(*key) || ((*key == "fields" || *key == "sort") && !isUtf8(*value))) {
            return bad("the query is not UTF-8");
        }
        if (std::find(seen.begin(), seen.end(), *key) != seen.end()) {
            return bad("a key stands twice in the query: " + *key);
        }
        seen.push_back(*key);
        if (auto problem = result.take(schema, *key, *value)) {
            return *problem;
        }
        if (*key != "offset") {
            result.m_withoutOffset.append(pair).append("&");
        }
    }
    return result;
}

std::optional<Problem> Query::take(const ResourceSchema& schema, const std::string& key, const std::string& value) {
    if (key == "fields") {
        return takeFields(schema, value);
    }
    if (key == "sort") {
        return takeSort(schema, value);
    }
    if (key == "limit" || key == "offset") {
        const auto number = wholeNumber(value);
        if (!number || (key == "limit" && *number == 0)) {
            return bad(key == "limit" ? "a limit is a number from 1" : "an offset is a number from 0");
        }
        (key == "limit" ? m_limit : m_offset) = *number;
        return std::nullopt;
    }
    const auto field = schema.find(key);
    if (!field) {
        return bad("the query holds an unknown key: " + key);
    }
    m_filter.emplace_back(*field, value);
    return std::nullopt;
}

std::optional<Problem> Query::takeFields(const ResourceSchema& schema, const std::string& value) {
    for (const std::string_view name : split(value, ',')) {
        const auto field = schema.find(name);
        if (!field || std::find(m_fields.begin(), m_fields.end(), *field) != m_fields.end()) {
            return bad("fields holds an unknown name, or one twice: " + std::string(name));
        }
        m_fields.push_back(*field);
    }
    for (const std::size_t identity : {idField, uriField}) {
        if (std::find(m_fields.begin(), m_fields.end(), identity) == m_fields.end()) {
            m_fields.push_back(identity);
        }
    }
    std::sort(m_fields.begin(), m_fields.end());
    return std::nullopt;
}

std::optional<Problem> Query::takeSort(const ResourceSchema& schema, const std::string& value) {
    for (std::string_view name : split(value, ',')) {
        const bool descending = !name.empty() && name.front() == '-';
        name.remove_prefix(descending ? 1 : 0);
        const auto field = schema.find(name);
        const auto same = [&](const SortKey& key) { return key.field == field; };
        if (!field || std::find_if(m_sort.begin(), m_sort.end(), same) != m_sort.end()) {
            return bad("sort holds an unknown name, or one twice: " + std::string(name));
        }
        m_sort.push_back({*field, descending});
    }
    return std::nullopt;
}

bool Query::matches(const Element& element) const {
    return std::all_of(m_filter.begin(), m_filter.end(),
                       [&](const auto& pair) { return valueMatches(element.values()[pair.first], pair.second); });
}

bool Query::comesBefore(const Element& a, const Element& b) const {
    for (const SortKey& key : m_sort) {
        const Value& left = a.values()[key.field];
        const Value& right = b.values()[key.field];
        const bool leftMissing = std::holds_alternative<std::monostate>(left);
        const bool rightMissing = std::holds_alternative<std::monostate>(right);
        if (leftMissing || rightMissing) {
            if (leftMissing != rightMissing) {
                return rightMissing;
            }
            continue;
        }
        // Arrays have no order. UTF-8 compares byte by byte as its code points do.
        if (std::holds_alternative<std::vector<std::string>>(left) || left == right) {
            continue;
        }
        return key.descending ? right < left : left < right;
    }
    return a.id() < b.id();
}

Query::Page Query::select(const RevisionLog& log) const {
    Page page;
    std::uint64_t skipped = 0;
    if (m_sort.empty()) {
        for (auto at = log.elements().rbegin(); at != log.elements().rend(); ++at) {
            if (!log.counts(*at->second) || !matches(*at->second)) {
                continue;
            }
            if (skipped < m_offset) {
                ++skipped;
            } else if (page.elements.size() < m_limit) {
                page.elements.push_back(at->second);
            } else {
                page.cut = true;
                break;
            }
        }
        return page;
    }
    for (const auto& entry : log.elements()) {
        if (log.counts(*entry.second) && matches(*entry.second)) {
            page.elements.push_back(entry.second);
        }
    }
    std::sort(page.elements.begin(), page.elements.end(),
              [this](const ElementPtr& a, const ElementPtr& b) { return comesBefore(*a, *b); });
    const std::size_t begin = static_cast<std::size_t>(std::min<std::uint64_t>(m_offset, page.elements.size()));
    page.elements.erase(page.elements.begin(), page.elements.begin() + static_cast<std::ptrdiff_t>(begin));
    if (page.elements.size() > m_limit) {
        page.elements.resize(static_cast<std::size_t>(m_limit));
        page.cut = true;
    }
    return page;
}

std::string Query::next() const {
    const std::uint64_t offset =
        m_offset > std::numeric_limits<std::uint64_t>::max() - m_limit ? m_offset : m_offset + m_limit;
    return m_withoutOffset + "offset=" + std::to_string(offset);
}

} // namespace cdxservice
