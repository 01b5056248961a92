// Code that needs a process of its own: other privileges or limits than the test's.
#pragma once

#include <functional>
#include <string>

namespace orvane::test {

/// Runs `body` in a forked child and returns what it returned; throws when the child ended in any
/// other way, with its error in the message. REQUIRES: no other threads.
std::string inChild(const std::function<std::string()>& body);

/// As `inChild`, as a user without privileges: the test's own, or "nobody" when that is root.
std::string inUnprivilegedChild(const std::function<std::string()>& body);

/// Whether `condition` holds for such a user. Expectations do not count in there.
bool asOrdinaryUser(const std::function<bool()>& condition);

}  // namespace orvane::test
