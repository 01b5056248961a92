// The user's config file: the parser against a second reading of the grammar, by characters instead
// of bytes; what was read, written down, reads the same; a profile never lacks its key.
#include "config/config_file.h"

#include "fuzz.h"
#include "platform/text/text.h"
#include "support/test_files.h"
#include "utf8_model.h"

#include <array>
#include <cstdlib>

namespace orvane::fuzz {

namespace {

/// CR LF as the one character that it is; no other has this number.
constexpr char32_t crLf = 0x110000;

std::u32string withPairsJoined(std::u32string_view text) {
    std::u32string joined;
    for (const char32_t c : text) {
        if (c == U'\n' && joined.ends_with(U'\r')) {
            joined.back() = crLf;
        } else {
            joined += c;
        }
    }
    return joined;
}

std::string bytesOf(std::u32string_view text) {
    std::u32string split;
    for (const char32_t c : text) {
        split += c == crLf ? std::u32string(U"\r\n") : std::u32string(1, c);
    }
    return encoded(split);
}

/// The grammar, read naively.
ConfigSections sectionsIn(std::u32string_view text) {
    ConfigSections sections;
    std::optional<std::string> current;
    const std::u32string ended = withPairsJoined(text) + U'\n';
    for (std::size_t at = 0; at < ended.size(); at = ended.find(U'\n', at) + 1) {
        const std::u32string_view whole(ended);
        const auto line = trimmedOf(whole.substr(at, ended.find(U'\n', at) - at), spaces);
        const auto equals = line.find(U'=');
        if (line.starts_with(U'[') && line.ends_with(U']')) {
            current = bytesOf(trimmedOf(line.substr(1, line.size() - 2), spaces));
            sections[*current].clear();
        } else if (!line.starts_with(U'#') && equals != std::u32string_view::npos && current) {
            const auto key = trimmedOf(line.substr(0, equals), spaces);
            const auto value = trimmedOf(trimmedOf(line.substr(equals + 1), spaces), U"\"");
            sections[*current][bytesOf(key)] = bytesOf(value);
        }
    }
    return sections;
}

std::string fileWith(const ConfigSections& sections) {
    std::string text;
    for (const auto& [name, section] : sections) {
        text += "[" + name + "]\n";
        for (const auto& [key, value] : section) {
            text.append(key).append("=\"").append(value).append("\"\n");
        }
    }
    return text;
}

std::optional<std::string> valueIn(const ConfigSection& section, const std::string& key) {
    const auto place = section.find(key);
    return place == section.end() ? std::nullopt : std::optional(place->second);
}

/// The profile that the file has to give.
std::optional<OrvaneConfig::Profile> profileIn(const ConfigSections& sections,
                                               const std::vector<std::string>& preferred) {
    for (const std::string& name : preferred) {
        const auto place = sections.find(name);
        const ConfigSection section = place == sections.end() ? ConfigSection() : place->second;
        const auto apiUrl = valueIn(section, "api_url");
        const auto apiKey = valueIn(section, "api_key");
        if (apiUrl && apiKey && *apiUrl != "" && *apiKey != "") {
            return OrvaneConfig::Profile{name, *apiUrl, *apiKey, valueIn(section, "agent_slug"),
                                         valueIn(section, "tenant")};
        }
    }
    return std::nullopt;
}

void checkParser(std::string_view text, std::u32string_view characters) {
    const ConfigSections sections = parseConfig(text);
    check(sections == sectionsIn(characters));
    check(parseConfig(fileWith(sections)) == sections);
}

void checkProfile(std::string_view content, const std::optional<std::u32string>& characters) {
    static const std::filesystem::path file = rootDirectory() / "home/.orvane/config";
    static const bool identityIsOff = ::setenv("ORVANE_API_KEY", "x", 1) == 0;
    check(identityIsOff);
    test::writeFile(file, content);
    const std::vector<std::string> preferred{"claude-code", "claude-cowork", "connect", "default"};
    const auto profile = OrvaneConfig::loadFirstProfile(preferred);
    check(!profile || (!profile->apiKey.empty() && !profile->apiUrl.empty()));
    std::u32string_view text = characters ? *characters : std::u32string_view();
    if (text.starts_with(U'\uFEFF')) {
        text.remove_prefix(1);
    }
    check(profile == profileIn(sectionsIn(text), preferred));
}

}  // namespace

void tryInput(std::string_view input) {
    const auto characters = decoded(input);
    check(text::isUtf8(input) == characters.has_value());
    if (characters) {
        checkParser(input, *characters);
    }
    checkProfile(input, characters);
}

}  // namespace orvane::fuzz
