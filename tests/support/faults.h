// System calls that fail when a test wants it.
#ifndef TESTS_SUPPORT_FAULTS_H
#define TESTS_SUPPORT_FAULTS_H

#include <functional>
#include <string>
#include <vector>

// Special values of nError and of nFailing below.
enum { comesUpShort = -1, killsProcess = -2 };
enum { eachOnce = -1 }; // every call fails but one that is made again right after it failed

// Whether the file system behaves as if it had no files without a name.
extern bool bNoUnnamedFiles;

// Runs body; of the calls that the library makes of the system, nFailures fail with that errno, from number nFailing
// on, where the first is 1. Returns the names of the calls made, in their order.
std::vector<std::string> WithFault(int nFailing, int nError, const std::function<void()>& body, int nFailures = 1);

#endif
