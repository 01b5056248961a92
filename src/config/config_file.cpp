#include "config/config_file.h"

#include "platform/text/text.h"
#include "platform/text/whitespace.h"

namespace orvane {

namespace {

/// Takes the next line off the front of `text`. CR LF is one character and not a line feed.
std::string_view takeLine(std::string_view& text) {
    std::size_t end = text.find('\n');
    while (end != std::string_view::npos && end > 0 && text[end - 1] == '\r') {
        end = text.find('\n', end + 1);
    }
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

bool isHeader(std::string_view line) {
    return line.size() >= 2 && line.front() == '[' && line.back() == ']';
}

void assign(ConfigSection& section, std::string_view line) {
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) {
        return;
    }
    const std::string_view key = text::withoutOuterSpaces(line.substr(0, equals));
    const std::string_view value = text::withoutOuterSpaces(line.substr(equals + 1));
    section.insert_or_assign(std::string(key), std::string(text::trimmed(value, '"')));
}

std::optional<std::string> valueOf(const ConfigSection& section, std::string_view key) {
    const auto found = section.find(key);
    return found == section.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

ConfigSections parseConfig(std::string_view text) {
    ConfigSections sections;
    ConfigSection* current = nullptr;
    while (!text.empty()) {
        const std::string_view line = text::withoutOuterSpaces(takeLine(text));
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (isHeader(line)) {
            const auto name = text::withoutOuterSpaces(line.substr(1, line.size() - 2));
            current = &sections.insert_or_assign(std::string(name), ConfigSection()).first->second;
        } else if (current != nullptr) {
            assign(*current, line);
        }
    }
    return sections;
}

std::optional<OrvaneConfig::Profile> profileOf(const std::string& name,
                                               const ConfigSection& section) {
    const auto apiUrl = valueOf(section, "api_url").value_or("");
    const auto apiKey = valueOf(section, "api_key").value_or("");
    if (apiUrl.empty() || apiKey.empty()) {
        return std::nullopt;
    }
    return OrvaneConfig::Profile{.name = name,
                                 .apiUrl = apiUrl,
                                 .apiKey = apiKey,
                                 .agentSlug = valueOf(section, "agent_slug"),
                                 .tenant = valueOf(section, "tenant")};
}

}  // namespace orvane
