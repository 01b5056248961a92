#include "status/service.h"

#include <charconv>
#include <optional>

namespace orvane::status {

namespace {

/// The rest of the first line that begins with `name`, which ends with what separates the two.
std::string_view valueOf(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        line.remove_prefix(std::min(line.size(), line.find_first_not_of(" \t")));
        if (line.starts_with(name)) {
            return line.substr(name.size());
        }
    }
    return {};
}

std::optional<std::int64_t> numberOf(std::string_view text, std::string_view name) {
    const std::string_view value = valueOf(text, name);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

ServiceState stateInSystemd(std::string_view properties) {
    const std::string_view loaded = valueOf(properties, "LoadState=");
    const std::string_view active = valueOf(properties, "ActiveState=");
    if (loaded == "masked") {
        return ServiceState::masked;
    }
    if (loaded == "not-found") {
        return ServiceState::notInstalled;
    }
    if (active == "active") {
        return ServiceState::running;
    }
    if (active == "activating") {
        return ServiceState::restarting;
    }
    return active.empty() ? ServiceState::unknown : ServiceState::stopped;
}

}  // namespace

ServiceState stateWithoutManager(std::uint32_t user, bool lingers) {
    if (user < firstOrdinaryUser) {
        return ServiceState::systemAccount;
    }
    return lingers ? ServiceState::stopped : ServiceState::notLoggedIn;
}

Service serviceFor(std::uint32_t user, Service service) {
    if (service.state == ServiceState::stopped && user < firstOrdinaryUser) {
        service.state = ServiceState::systemAccount;
    }
    return service;
}

Service serviceInSystemd(std::string_view properties, std::chrono::nanoseconds now) {
    Service service;
    service.state = stateInSystemd(properties);
    service.restarts = numberOf(properties, "NRestarts=");
    if (service.state == ServiceState::running) {
        service.pid = numberOf(properties, "MainPID=");
        if (const auto since = numberOf(properties, "ActiveEnterTimestampMonotonic=")) {
            service.runningFor = now - std::chrono::microseconds(*since);
        }
    }
    return service;
}

Service serviceInLaunchd(std::string_view listing) {
    if (listing.empty()) {
        return {.state = ServiceState::stopped};
    }
    const auto pid = numberOf(listing, "pid = ");
    auto restarts = numberOf(listing, "runs = ");
    if (restarts) {
        --*restarts;  // it counts the first start, too
    }
    return {.state = pid ? ServiceState::running : ServiceState::restarting,
            .pid = pid,
            .restarts = restarts};
}

}  // namespace orvane::status
