// The grammar of the user's config file, a small INI dialect.
#pragma once

#include "config/orvane_config.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// The keys of one section with their values.
using ConfigSection = std::map<std::string, std::string, std::less<>>;

/// The sections of a config file by name.
using ConfigSections = std::map<std::string, ConfigSection, std::less<>>;

/// Reads the sections of `text`. A line is a blank one, a comment ("#" first), a header "[name]" or
/// an assignment "key = value"; anything else, and a key before the first header, is passed over.
///
/// A header starts its section afresh, even one that was there before. A later assignment of a key
/// replaces an earlier one. Values lose outer blanks, then all double quotes at their ends; there
/// are no escapes and no trailing comments. A line ends at a line feed that no carriage return
/// precedes, so a file with CR LF line ends is one line. REQUIRES: valid UTF-8.
ConfigSections parseConfig(std::string_view text);

/// The profile of `section` under `name`; absent when "api_url" or "api_key" is missing or empty.
std::optional<OrvaneConfig::Profile> profileOf(const std::string& name,
                                               const ConfigSection& section);

}  // namespace orvane
