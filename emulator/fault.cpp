#include "emulator/fault.h"

#include "emulator/bad_input.h"
#include "emulator/chance.h"
#include "emulator/number.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <iterator>

namespace orvane::emulator {
namespace {

using nlohmann::json;

constexpr std::array<FaultDescription, 18> descriptions{{
    {FaultKind::unauthorized, "unauthorized", "401: the key is rejected"},
    {FaultKind::forbidden, "forbidden", "403: the key may not do this"},
    {FaultKind::notFound, "not-found", "404: no such address"},
    {FaultKind::tooLargeHeader, "too-large-header", "431: the request's headers are too large"},
    {FaultKind::serverError, "server-error", "500: the server has failed"},
    {FaultKind::slow, "slow", "each answer comes 10 s late, or as late as the delay says"},
    {FaultKind::neverAnswer, "never-answer", "the connection stays open without an answer"},
    {FaultKind::dropMidBody, "drop-mid-body", "the connection is lost in the middle of the policy"},
    {FaultKind::truncate, "truncate", "the policy ends in its middle"},
    {FaultKind::garbage, "garbage", "bytes that are not HTTP"},
    {FaultKind::htmlPortal, "html-portal", "the sign-in page of a captive portal, with status 200"},
    {FaultKind::redirect, "redirect", "302 to another path"},
    {FaultKind::instant304, "instant-304", "304 at once; agents poll again at full speed"},
    {FaultKind::noEtag, "no-etag", "the policy without an ETag; agents poll again at full speed"},
    {FaultKind::longEtag, "long-etag", "an ETag of 9,000 characters"},
    {FaultKind::huge, "huge", "a policy of 101 MiB, more than agents take"},
    {FaultKind::goAway, "goaway",
     "the connection is ended with GOAWAY, as by a gateway that restarts"},
    {FaultKind::outage, "outage", "every connection is lost, for 60 s or the time given"},
}};

constexpr std::chrono::seconds usualOutage{60};
constexpr unsigned longestSeconds = 86'400;

FaultKind kindOf(std::string_view name) {
    const auto* const found = std::find_if(descriptions.begin(), descriptions.end(),
                                           [&](const auto& each) { return each.name == name; });
    if (found == descriptions.end()) {
        throw BadInput("there is no fault \"" + std::string(name) +
                       "\"; orvane-control-plane --help lists them");
    }
    return found->kind;
}

/// Sets what is called `key`. Numbers come as text.
void set(Fault& fault, std::string_view key, std::string_view value) {
    const auto number = [&](unsigned least, unsigned most) {
        const auto read = numberIn<unsigned>(value, least, most);
        if (!read) {
            throw BadInput("a fault's " + std::string(key) + " is a number from " +
                           std::to_string(least) + " to " + std::to_string(most) + ", not \"" +
                           std::string(value) + '"');
        }
        return *read;
    };
    if (key == "device") {
        fault.device = value;
    } else if (key == "percent") {
        fault.percent = number(1, 100);
    } else if (key == "seconds") {
        fault.lasts = std::chrono::seconds(number(1, longestSeconds));
    } else if (key == "delay") {
        fault.delay = std::chrono::seconds(number(1, longestSeconds));
    } else {
        throw BadInput("a fault has no \"" + std::string(key) +
                       "\", only device, percent, seconds and delay");
    }
}

Fault finished(Fault fault) {
    if (fault.kind == FaultKind::outage && fault.lasts == std::chrono::seconds(0)) {
        fault.lasts = usualOutage;
    }
    return fault;
}

Fault faultIn(const json& object) {
    Fault fault;
    if (!object.is_object() || !object.contains("name") || !object["name"].is_string()) {
        throw BadInput("a fault is an object with a \"name\"");
    }
    for (const auto& [key, value] : object.items()) {
        if (key == "name") {
            fault.kind = kindOf(value.get_ref<const std::string&>());
        } else {
            set(fault, key, value.is_string() ? value.get<std::string>() : value.dump());
        }
    }
    return finished(fault);
}

}  // namespace

std::span<const FaultDescription> faultDescriptions() {
    return descriptions;
}

std::string_view nameOf(FaultKind kind) {
    return descriptions.at(static_cast<std::size_t>(kind)).name;
}

Fault parseFault(std::string_view text) {
    Fault fault;
    std::size_t comma = text.find(',');
    fault.kind = kindOf(text.substr(0, comma));
    while (comma != std::string_view::npos) {
        text.remove_prefix(comma + 1);
        comma = text.find(',');
        const std::string_view item = text.substr(0, comma);
        const std::size_t equals = item.find('=');
        set(fault, item.substr(0, equals),
            equals == std::string_view::npos ? "" : item.substr(equals + 1));
    }
    return finished(fault);
}

std::vector<Fault> readFaults(std::string_view json) {
    const nlohmann::json list = nlohmann::json::parse(json, nullptr, /*allow_exceptions=*/false);
    if (!list.is_array()) {
        throw BadInput(R"(the faults are a JSON array, for example [{"name":"slow"}])");
    }
    std::vector<Fault> faults;
    std::transform(list.begin(), list.end(), std::back_inserter(faults), faultIn);
    return faults;
}

std::string faultsText(std::span<const Fault> faults) {
    json list = json::array();
    for (const Fault& fault : faults) {
        json object{{"name", nameOf(fault.kind)}};
        if (!fault.device.empty()) {
            object["device"] = fault.device;
        }
        if (fault.percent != Fault().percent) {
            object["percent"] = fault.percent;
        }
        if (fault.lasts != Fault().lasts) {
            object["seconds"] = fault.lasts.count();
        }
        if (fault.kind == FaultKind::slow) {
            object["delay"] = fault.delay.count();
        }
        list.push_back(std::move(object));
    }
    return list.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string faultKindsText() {
    json list = json::array();
    for (const FaultDescription& each : descriptions) {
        list.push_back({{"name", each.name}, {"meaning", each.meaning}});
    }
    return list.dump();
}

std::optional<Fault> faultFor(std::span<const Fault> faults, std::string_view device,
                              std::uint64_t poll, std::uint64_t seed) {
    for (std::size_t i = 0; i < faults.size(); ++i) {
        const Fault& fault = faults[i];
        const bool isMeant = (fault.device.empty() || fault.device == device) &&
                             (poll != 0 || fault.kind == FaultKind::outage);
        if (isMeant && chance({seed, device, poll, i + 1}, 100) < fault.percent) {
            return fault;
        }
    }
    return std::nullopt;
}

}  // namespace orvane::emulator
