#pragma once

#include <cstddef>

#if defined(_WIN32)
#ifndef PSAPI_VERSION
#define PSAPI_VERSION 2 // K32GetProcessMemoryInfo from kernel32: no psapi import library needed
#endif
#include <windows.h>
// psapi.h needs the types of windows.h first.
#include <psapi.h>
#else
#include <fstream>
#include <unistd.h>
#endif

namespace TavrinTest
{
/// AddressSanitizer's quarantine makes the process grow by design (LeakSanitizer watches there).
constexpr bool underAddressSanitizer()
{
#if defined(__SANITIZE_ADDRESS__)
    return true;
#else
    return false;
#endif
}

/// Resident bytes on Linux, committed private bytes on Windows; 0 when it cannot be read.
inline std::size_t processMemoryBytes()
{
#if defined(_WIN32)
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof(counters);
    return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)) ? counters.PagefileUsage : 0;
#else
    std::ifstream statm("/proc/self/statm");
    std::size_t totalPages = 0, residentPages = 0;
    return statm >> totalPages >> residentPages ? residentPages * std::size_t(sysconf(_SC_PAGESIZE)) : 0;
#endif
}
} // namespace TavrinTest
