#ifndef CDXTESTS_SUPPORT_CONFORMANCEREPORT_H
#define CDXTESTS_SUPPORT_CONFORMANCEREPORT_H

#include <support/ConformanceCase.h>

#include <fstream>
#include <functional>
#include <string>

namespace cdxtest {

/// Writes what became of each case as rows of a table, where the environment variable CDX_CONFORMANCE_DIR names a
/// folder for it: docs/conformance.md is put together from these files. Writes nothing where it does not.
class ConformanceReport {
public:
    ConformanceReport(const std::string& side, const std::string& section);

    void add(const std::string& number, const std::string& title, const std::string& expectation,
             const std::string& reason, const std::string& difference);

private:
    std::ofstream m_rows;
};

/// Plays a section's cases against `side`; `play` plays one. Each difference fails the test, and each case becomes a
/// row of the report.
void playSection(const char* side, const ConformanceSection& section, const Dialect& dialect,
                 const std::function<ConformanceResult(const ConformanceCase&)>& play);

} // namespace cdxtest

#endif
