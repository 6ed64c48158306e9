#ifndef XAL_QUERYOPTIONS_H
#define XAL_QUERYOPTIONS_H

#include <xalutil/Optional.h>

#include <string>
#include <utility>
#include <vector>

namespace xal {

/// What a list request asks for besides the elements' filter: which fields, in which order, how many, from where.
/// The expand level and the expand fields are kept for their readers and not sent.
class QueryOptions {
public:
    enum EXPAND_LEVEL { EXPAND_NONE, EXPAND_ELEMENTS, EXPAND_ALL };
    enum SORTBY_OPERATOR { ASCENDING, DESCENDING };

    using SortBy = std::vector<std::pair<SORTBY_OPERATOR, std::string>>;

    const std::vector<std::string>& getFields() const { return m_fields; }
    EXPAND_LEVEL getExpandLevel() const { return m_expandLevel; }
    const std::vector<std::string>& getExpandFields() const { return m_expandFields; }
    const SortBy& getSortBy() const { return m_sortBy; }
    /// The number of elements wanted, in decimal.
    const xalutil::Optional<std::string>& getLimit() const { return m_limit; }
    /// The number of elements to pass over, in decimal, or as the caller's text gave it.
    const xalutil::Optional<std::string>& getOffset() const { return m_offset; }

    void setFields(std::vector<std::string> fields) { m_fields = std::move(fields); }
    void setExpandLevel(EXPAND_LEVEL level) { m_expandLevel = level; }
    void setExpandFields(std::vector<std::string> fields) { m_expandFields = std::move(fields); }
    void setSortBy(SortBy sortBy) { m_sortBy = std::move(sortBy); }
    void setLimit(std::string limit) { m_limit.setValue(std::move(limit)); }
    void setOffset(std::string offset) { m_offset.setValue(std::move(offset)); }

private:
    std::vector<std::string> m_fields;
    EXPAND_LEVEL m_expandLevel = EXPAND_NONE;
    std::vector<std::string> m_expandFields;
    SortBy m_sortBy;
    xalutil::Optional<std::string> m_limit;
    xalutil::Optional<std::string> m_offset;
};

/// Key and value pairs that elements of a list request must match, in the order in which their keys were first added.
class XalFilter {
public:
    /// Adding a key again replaces its value. Numbers are written in decimal, flags as true and false.
    void add(const std::string& key, const std::string& value);
    void add(const std::string& key, const char* value);
    void add(const std::string& key, bool value);
    void add(const std::string& key, int value);
    void add(const std::string& key, long value);

    const std::vector<std::pair<std::string, std::string>>& getPairs() const { return m_pairs; }

private:
    std::vector<std::pair<std::string, std::string>> m_pairs;
};

} // namespace xal

#endif
