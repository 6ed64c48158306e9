#include "ConformanceReport.h"

#include <gtest/gtest.h>

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

void ConformanceReport::add(const std::string& number, const std::string& title, const std::string& expectation,
                            const std::string& reason, const std::string& difference) {
    if (!m_rows.is_open())
        return;
    for (const std::string& text :
         {number, title, expectation, difference.empty() ? "as expected" : difference, reason})
        m_rows << "| " << cell(text) << ' ';
    m_rows << "|\n";
}

void playSection(const char* side, const ConformanceSection& section, const Dialect& dialect,
                 const std::function<ConformanceResult(const ConformanceCase&)>& play) {
    ConformanceReport report(side, section.name);
    std::size_t cases = 0;
    section.cases(dialect, [&](const ConformanceCase& played) {
        const std::string expectation = describeExpectation(played);
        const std::string difference = play(played).differenceTo(played);
        EXPECT_EQ(difference, "") << played.number << ": " << played.title << "; expected " << expectation;
        report.add(played.number, played.title, expectation, played.reason, difference);
        ++cases;
    });
    EXPECT_EQ(cases, section.count);
}

} // namespace cdxtest
