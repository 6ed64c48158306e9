#ifndef SERVICE_SRC_QUERY_H
#define SERVICE_SRC_QUERY_H

#include "Element.h"
#include "Problem.h"
#include "RevisionLog.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace cdxservice {

/// What a reader of a resource asks for: which elements, in what order, which part of them.
class Query {
public:
    struct Page {
        std::vector<ElementPtr> elements;
        bool cut = false; ///< More elements match behind this page.
    };

    /// Reads the query of an address, without its question mark, against the resource's fields; 400 if it is none.
    static std::variant<Query, Problem> parse(const ResourceSchema& schema, std::string_view query);

    Page select(const RevisionLog& log) const;

    /// The fields to write, ascending; empty: all.
    const std::vector<std::size_t>& fields() const { return m_fields; }
    /// The query of the next page.
    std::string next() const;

private:
    struct SortKey {
        std::size_t field;
        bool descending;
    };

    std::optional<Problem> take(const ResourceSchema& schema, const std::string& key, const std::string& value);
    std::optional<Problem> takeFields(const ResourceSchema& schema, const std::string& value);
    std::optional<Problem> takeSort(const ResourceSchema& schema, const std::string& value);
    bool matches(const Element& element) const;
    bool comesBefore(const Element& a, const Element& b) const;

    std::vector<std::size_t> m_fields;
    std::vector<SortKey> m_sort;
    std::vector<std::pair<std::size_t, std::string>> m_filter;
    std::uint64_t m_limit = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t m_offset = 0;
    std::string m_withoutOffset; ///< The query as it was sent, but for its offset.
};

} // namespace cdxservice

#endif
