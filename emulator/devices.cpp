#include "emulator/devices.h"

#include "emulator/json_text.h"

namespace orvane::emulator {
namespace {

using nlohmann::json;

/// What JavaScript's Date takes.
std::int64_t milliseconds(Devices::WallClock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

json objectOf(const Exchange& exchange) {
    return {{"method", exchange.method},     {"target", exchange.target},
            {"status", exchange.status},     {"bytes", exchange.bytes},
            {"held", exchange.held.count()}, {"tag", exchange.ifNoneMatch},
            {"fault", exchange.fault},       {"hung_up", exchange.hungUp}};
}

}  // namespace

std::uint64_t Devices::nextPoll(const std::string& device) {
    return ++deviceOf(device).polls;
}

void Devices::held(const Exchange& exchange, bool begins, WallClock::time_point now) {
    Device& device = deviceOf(exchange.device);
    if (begins && device.held++ == 0) {
        device.heldSince = now;
    }
    device.fault = exchange.fault;
    device.wait = exchange.wait;
    device.tag = exchange.ifNoneMatch;
    touch(exchange.device, device, now);
}

void Devices::ended(const Exchange& exchange, bool wasHeld, WallClock::time_point now) {
    Device& device = deviceOf(exchange.device);
    if (wasHeld && device.held > 0) {
        --device.held;
    }
    if (exchange.isPoll) {
        device.tag = exchange.ifNoneMatch;
    }
    device.hasIdentity |= exchange.target.find("/agent-config/") != std::string::npos;
    device.timeline.push_back({now, exchange});
    if (device.timeline.size() > timelineLength) {
        device.timeline.pop_front();
    }
    touch(exchange.device, device, now);
}

std::pair<std::string, std::uint64_t> Devices::changedSince(std::uint64_t version,
                                                            std::size_t most) const {
    std::string list;
    auto next = byVersion_.lower_bound({version + 1, {}});
    for (; next != byVersion_.end() && most > 0; ++next, --most) {
        list += (list.empty() ? "" : ",") + rowText(next->second, devices_.at(next->second));
        version = next->first;
    }
    return {'[' + list + ']', version};
}

std::string Devices::timeline(const std::string& name) const {
    json list = json::array();
    if (const auto found = devices_.find(name); found != devices_.end()) {
        for (const Event& event : found->second.timeline) {
            json object = objectOf(event.exchange);
            object["at"] = milliseconds(event.at);
            list.push_back(std::move(object));
        }
    }
    return jsonText(list);
}

Devices::Device& Devices::deviceOf(const std::string& name) {
    if (devices_.size() >= maxDevices && !devices_.contains(name) && !byVersion_.empty()) {
        devices_.erase(byVersion_.begin()->second);
        byVersion_.erase(byVersion_.begin());
    }
    return devices_[name];
}

void Devices::touch(const std::string& name, Device& device, WallClock::time_point now) {
    byVersion_.erase({device.version, name});
    device.version = ++version_;
    byVersion_.emplace(device.version, name);
    device.lastSeen = now;
}

std::string Devices::rowText(const std::string& name, const Device& device) {
    json row{{"name", name},
             {"identity", device.hasIdentity},
             {"held", device.held},
             {"wait", device.wait.count()},
             {"tag", device.tag},
             {"polls", device.polls},
             {"last_seen", milliseconds(device.lastSeen)}};
    if (device.held > 0) {
        row["held_since"] = milliseconds(device.heldSince);
        row["fault"] = device.fault;
    }
    if (!device.timeline.empty()) {
        row["last"] = objectOf(device.timeline.back().exchange);
    }
    return jsonText(row);
}

}  // namespace orvane::emulator
