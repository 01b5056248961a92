// Code that needs a process of its own: other privileges, limits or mounts than the test's.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace orvane::test {

/// Runs `body` in a forked child and returns what it returned; throws when the child ended in any
/// other way, with its error in the text. REQUIRES: no other threads.
std::string inChild(const std::function<std::string()>& body);

/// As `inChild`, as a user without privileges: the test's own, or "nobody" when that is root.
std::string inUnprivilegedChild(const std::function<std::string()>& body);

/// Lets the calling process see mounts of its own from now on; what it mounts is seen by it alone.
/// Why that is not permitted, or nothing. For children: there is no way back.
std::string useOwnMounts();

/// Mounts `source` over `target`, for a process with mounts of its own.
void mountOver(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace orvane::test
