// The grammar of the user's config file, a small INI dialect.
#pragma once

#include "config/orvane_config.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The keys of a section with their values.
using ConfigSection = std::map<std::string, std::string, std::less<>>;

/// The sections of a config file by name.
using ConfigSections = std::map<std::string, ConfigSection, std::less<>>;

/// Reads the sections of `text`. A line is empty, a comment ("#" first), a header "[name]" or an
/// assignment "key = value"; anything else, and an assignment before the first header, is ignored.
///
/// A repeated header discards the earlier section of that name, a repeated key its earlier value.
/// Values are trimmed of whitespace, then of all double quotes at both ends; there are no escapes
/// and no trailing comments. A line ends at a line feed that does not follow a carriage return, so
/// a file with CR LF line ends is one line. REQUIRES: valid UTF-8.
[[nodiscard]] ConfigSections parseConfig(std::string_view text);

/// The profile of `section` under `name`; nullopt if "api_url" or "api_key" is missing or empty.
[[nodiscard]] std::optional<OrvaneConfig::Profile> profileOf(const std::string& name,
                                                             const ConfigSection& section);

}  // namespace orvane
