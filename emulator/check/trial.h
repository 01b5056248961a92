// The requests that a control plane is tried with, as findings name them.
#pragma once

#include <string_view>

namespace orvane::emulator {

/// What was requested, and what a daemon does when the answer is of no use to it.
struct Trial {
    std::string_view request;
    std::string_view afterFailure;
};

namespace trials {

inline constexpr std::string_view pollsLater =
    "A daemon keeps what it has and polls again after 60 s";
inline constexpr std::string_view goesOnWithout =
    "A daemon goes on without, and does not ask again until the next policy";
inline constexpr std::string_view looksElsewhere =
    "A daemon turns to its config file, and without one it asks again after 30 s";

inline constexpr Trial lookup{"The lookup of the device", looksElsewhere};
inline constexpr Trial lookupWithWrongToken{"A lookup with a wrong token", looksElsewhere};
inline constexpr Trial firstPoll{"A poll without an ETag", pollsLater};
inline constexpr Trial effective{"The effective configuration", goesOnWithout};
inline constexpr Trial pollWithWrongKey{"A poll with a wrong key", pollsLater};
inline constexpr Trial effectiveWithWrongKey{"The effective configuration with a wrong key",
                                             goesOnWithout};
inline constexpr Trial pollWithUnknownTag{"A poll with an unknown ETag", pollsLater};
inline constexpr Trial pollWithLongTag{"A poll with an ETag of 8,192 bytes", pollsLater};
inline constexpr Trial pollAfterLongTag{"The poll without an ETag that follows a refused one",
                                        pollsLater};
inline constexpr Trial shortPoll{"A poll with the live ETag and wait=1", pollsLater};
inline constexpr Trial heldPoll{"A poll with the live ETag", pollsLater};

}  // namespace trials

}  // namespace orvane::emulator
