#ifndef CDXTESTS_SUPPORT_PROCESSSTATE_H
#define CDXTESTS_SUPPORT_PROCESSSTATE_H

#include <string>
#include <vector>

namespace cdxtest {

// What the system tells of a process: its number, or "self" for this one.

std::vector<int> openDescriptors(const std::string& process = "self");
/// The memory that is its own, in KiB.
long residentKib(const std::string& process = "self");

/// Whether a process's memory tells of what it holds, and its time of what it does: a sanitizer keeps what was freed,
/// and does many things of its own.
#ifdef CDX_SANITIZED
constexpr bool memoryTells = false;
constexpr bool timeTells = false;
#else
constexpr bool memoryTells = true;
constexpr bool timeTells = true;
#endif

} // namespace cdxtest

#endif
