#ifndef CDXTESTS_SUPPORT_PROCESSSTATE_H
#define CDXTESTS_SUPPORT_PROCESSSTATE_H

#include <string>
#include <vector>

namespace cdxtest {

// What the system tells of a process: its number, or "self" for this one.

std::vector<int> openDescriptors(const std::string& process = "self");
/// The memory that is its own, in KiB.
long residentKib(const std::string& process = "self");

/// Whether the memory of a process tells of what it holds: a sanitizer keeps what was freed.
#ifdef CDX_SANITIZED
constexpr bool memoryTells = false;
#else
constexpr bool memoryTells = true;
#endif

} // namespace cdxtest

#endif
