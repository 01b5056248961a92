// What the stored policy and the file with its ETag contain.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// What the daemon itself reads of a policy.
struct PolicyContent {
    std::optional<std::string> etag;  ///< never empty
};

/// Reads the text of a policy; absent if that is not a JSON object. Pure.
[[nodiscard]] std::optional<PolicyContent> readPolicy(std::string_view text);

/// The ETag in `file`, possibly empty; absent if there is none or the file is not usable.
[[nodiscard]] std::optional<std::string> readEtagFile(const std::filesystem::path& file);

/// The text of a file with `etag`. Pure.
[[nodiscard]] std::string etagFileText(std::string_view etag);

}  // namespace orvane
