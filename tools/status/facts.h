// What is known about one account's daemon: gathered by gather.h, judged by verdict.h.
#pragma once

#include "status/history.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace orvane::status {

/// What the service manager says about the daemon.
enum class ServiceState {
    running,
    restarting,  ///< it ended, and is about to be started again
    stopped,
    masked,  ///< disabled on purpose for this account
    notInstalled,
    notLoggedIn,    ///< the account has no service manager now, and so no daemon
    systemAccount,  ///< root and system accounts, which never have a daemon
    unknown,        ///< there is no service manager to ask
};

struct Service {
    ServiceState state = ServiceState::unknown;
    std::optional<std::int64_t> pid = std::nullopt;
    std::optional<std::int64_t> restarts = std::nullopt;
    std::optional<std::chrono::nanoseconds> runningFor = std::nullopt;
};

/// The source of credentials that the daemon uses.
struct Source {
    std::string name;  ///< "managed", "device" or a section of the config file
    std::string apiUrl;
    bool isUrl = true;        ///< whether a poll can be sent to `apiUrl`
    bool isInferred = false;  ///< concluded from the last poll, not looked up
};

/// The stored policy and its ETag.
struct Policy {
    bool isThere = false;
    bool isUsable = false;  ///< it is a JSON object
    std::int64_t bytes = 0;
    Time storedAt{};
    std::optional<std::string> ownTag;  ///< the ETag in the policy itself
    std::optional<std::string> tag;     ///< the ETag that the next poll sends
};

/// How the capture policy compares with the stored policy.
enum class CaptureState {
    notAsked,  ///< the policy says nothing about capture
    inStep,
    different,
    missing,
};

struct Capture {
    CaptureState state = CaptureState::notAsked;
    bool enabled = false;    ///< as the policy wants it
    std::int64_t hosts = 0;  ///< as the policy wants it
    bool isReadableByOthers = true;
    std::optional<std::string> owner;  ///< the account that owns the file, if it is another one
};

struct Facts {
    std::string account;
    Time now{};
    Service service;
    std::optional<Source> source;
    Policy policy;
    History history;
    bool isLogReadable = true;
    Capture capture;
    std::optional<Time> effectiveStoredAt;
    std::optional<std::uintmax_t> freeBytes;  ///< on the disk with ~/.orvane
};

}  // namespace orvane::status
