#include "ConformanceReport.h"

#include <cstdlib>
#include <initializer_list>

namespace cdxtest {

namespace {

/// A cell keeps to its line and its column.
std::string cell(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '|')
            out += "\\|";
        else
            out += c == '\n' || c == '\r' ? ' ' : c;
    }
    return out;
}

} // namespace

ConformanceReport::ConformanceReport(const std::string& side, const std::string& section) {
    if (const char* folder = std::getenv("CDX_CONFORMANCE_DIR"))
        m_rows.open(std::string(folder) + "/" + side + "-" + section + ".rows");
}

void ConformanceReport::add(const ConformanceCase& expected, const std::string& difference) {
    add(expected.number, expected.title, describeExpectation(expected), expected.reason, difference);
}

void ConformanceReport::add(const std::string& number, const std::string& title, const std::string& expectation,
                            const std::string& reason, const std::string& difference) {
    if (!m_rows.is_open())
        return;
    for (const std::string& text :
         {number, title, expectation, difference.empty() ? "as expected" : difference, reason})
        m_rows << "| " << cell(text) << ' ';
    m_rows << "|\n";
}

} // namespace cdxtest
