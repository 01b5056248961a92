#include "emulator/policy.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <utility>

namespace orvane::emulator {
namespace {

using nlohmann::json;

/// Writing JSON recurses, so a limit here keeps a hostile policy from exhausting the stack.
constexpr int maxDepth = 1000;

/// FNV-1a, 64 bits, as 16 hex digits: short, and the same for the same content.
std::string tagOf(std::string_view content) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : content) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
    std::ostringstream digits;
    digits << std::hex << std::setw(16) << std::setfill('0') << hash;
    return digits.str();
}

std::optional<json> parseObject(std::string_view text) {
    int deepest = 0;
    const auto noteDepth = [&deepest](int depth, json::parse_event_t, const json&) {
        deepest = std::max(deepest, depth);
        return true;
    };
    json value = json::parse(text, noteDepth, /*allow_exceptions=*/false);
    if (!value.is_object() || deepest > maxDepth) {
        return std::nullopt;
    }
    // By its name: a json converts to nearly everything, an optional included.
    return std::make_optional(std::move(value));
}

std::string guardConfigOf(const json& policy) {
    const auto found = policy.find("guard_config");
    return found == policy.end() ? "{}" : found->dump();
}

std::string withTag(json policy, const std::string& tag) {
    policy.erase("etag");
    const std::string rest = policy.dump();
    return R"({"etag":")" + tag + (policy.empty() ? "\"" : "\",") + rest.substr(1);
}

}  // namespace

std::optional<Policy> readPolicy(std::string_view json) {
    auto object = parseObject(json);
    if (!object) {
        return std::nullopt;
    }
    std::string guardConfig = guardConfigOf(*object);
    const auto etag = object->find("etag");
    if (etag != object->end() && etag->is_string() && !etag->get_ref<std::string&>().empty()) {
        return Policy{std::string(json), etag->get<std::string>(), std::move(guardConfig)};
    }
    std::string tag = tagOf(json);
    std::string text = withTag(std::move(*object), tag);
    return Policy{std::move(text), std::move(tag), std::move(guardConfig)};
}

}  // namespace orvane::emulator
