#ifndef CDXTESTS_SUPPORT_PROCESSSTATE_H
#define CDXTESTS_SUPPORT_PROCESSSTATE_H

#include <string>
#include <vector>

namespace cdxtest {

// What the system tells of a process: its number, or "self" for this one.

std::vector<int> openDescriptors(const std::string& process = "self");
/// The system's numbers of its threads. One that was joined may still be among them for a moment.
std::vector<int> threads(const std::string& process = "self");
/// Whether one of its threads bears the name, or the first 15 characters of it.
bool hasThread(const std::string& name, const std::string& process = "self");
/// Whether every other thread of this process waits, and none did anything else for a moment.
bool othersRest();
/// The memory that is its own, in KiB.
long residentKib(const std::string& process = "self");
/// What this process has allocated and not freed, in bytes; nothing under a sanitizer, which has an allocator of its
/// own.
long allocatedBytes();

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
