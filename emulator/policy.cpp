#include "emulator/policy.h"

#include "emulator/bad_input.h"
#include "emulator/hash.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <utility>

namespace orvane::emulator {
namespace {

using nlohmann::json;

/// Writing JSON recurses, so a limit here keeps a hostile policy from exhausting the stack.
constexpr int maxDepth = 1000;

/// 16 hex digits: short, and the same for the same content.
std::string tagOf(std::string_view content) {
    std::ostringstream digits;
    digits << std::hex << std::setw(16) << std::setfill('0') << hashOf(content);
    return digits.str();
}

/// Where the byte with the number `byte`, counted from 1, is in `text`.
std::string placeOf(std::string_view text, std::size_t byte) {
    const std::string_view before = text.substr(0, byte == 0 ? 0 : byte - 1);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t lineStart = before.rfind('\n') + 1;  // 0 if there is no line feed
    return "line " + std::to_string(line) + ", column " +
           std::to_string(before.size() - lineStart + 1);
}

json parse(std::string_view text) {
    int deepest = 0;
    const auto noteDepth = [&deepest](int depth, json::parse_event_t, const json&) {
        deepest = std::max(deepest, depth);
        return true;
    };
    try {
        json value = json::parse(text, noteDepth);
        if (deepest > maxDepth) {
            throw BadInput("the policy is nested more than " + std::to_string(maxDepth) +
                           " levels deep");
        }
        return value;
    } catch (const json::parse_error& error) {
        throw BadInput("the policy is not valid JSON: see " + placeOf(text, error.byte));
    }
}

std::string guardConfigOf(const json& policy) {
    const auto found = policy.find("guard_config");
    return found == policy.end() ? "{}" : found->dump();
}

/// The text of `policy`, which has no ETag, with one as its first member.
std::string tagged(const json& policy, const std::string& tag) {
    const std::string rest = policy.dump();
    return R"({"etag":)" + json(tag).dump() + (policy.empty() ? "" : ",") + rest.substr(1);
}

}  // namespace

Policy readPolicy(std::string_view text) {
    json object = parse(text);
    if (!object.is_object()) {
        throw BadInput("the policy is not a JSON object");
    }
    std::string guardConfig = guardConfigOf(object);
    const auto etag = object.find("etag");
    if (etag != object.end() && etag->is_string() && !etag->get_ref<std::string&>().empty()) {
        return {std::string(text), etag->get<std::string>(), std::move(guardConfig)};
    }
    object.erase("etag");
    std::string tag = tagOf(text);
    std::string handedOut = tagged(object, tag);
    return {std::move(handedOut), std::move(tag), std::move(guardConfig)};
}

Policy withTag(const Policy& policy, const std::string& tag) {
    json object = json::parse(policy.text);
    object.erase("etag");
    return {tagged(object, tag), tag, policy.guardConfig};
}

std::string textWithoutTag(const Policy& policy) {
    json object = json::parse(policy.text);
    object.erase("etag");
    return object.dump();
}

}  // namespace orvane::emulator
