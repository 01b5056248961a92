#include "support/daemon_test.h"

#include "support/rooted_paths.h"
#include "support/virtual_clock.h"

#include <cstdlib>
#include <sstream>

namespace orvane::test {

namespace {

/// One for the process: the daemon finds some locations only once.
const TempDirectory& rootDirectory() {
    static const TempDirectory directory;
    return directory;
}

}  // namespace

DaemonTest::DaemonTest() {
    rooted_paths::setRoot(rootDirectory().path());
    rootDirectory().clear();
    virtual_clock::reset();
    (void)unsetenv("ORVANE_API_KEY");
}

DaemonTest::~DaemonTest() {
    virtual_clock::reset();
}

std::filesystem::path DaemonTest::root() {
    return rootDirectory().path();
}

void DaemonTest::enroll(const std::string& apiUrl, const std::string& apiKey) {
    const nlohmann::json file{{"api_url", apiUrl}, {"api_key", apiKey}};
    writeFile(setup() / "enroll-config.json", file.dump());
}

void DaemonTest::identify(const std::string& apiUrl) {
    const nlohmann::json file{
        {"device_token", "device-1"}, {"tenant_slug", "tenant-1"}, {"api_url", apiUrl}};
    writeFile(setup() / "device-identity.json", file.dump());
}

void DaemonTest::installRegistryTool(std::string_view script) {
    const auto tool = root() / "usr/sbin/ioreg";
    writeFile(tool, script);
    std::filesystem::permissions(tool, std::filesystem::perms(0755));
}

std::vector<nlohmann::json> DaemonTest::activity() {
    std::vector<nlohmann::json> lines;
    if (!std::filesystem::exists(activityFile())) {
        return lines;
    }
    std::istringstream content(readFile(activityFile()));
    for (std::string line; std::getline(content, line);) {
        lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
}

std::vector<std::string> DaemonTest::logged(const std::string& level) const {
    std::vector<std::string> texts;
    for (const LoggedMessage& message : log.messages()) {
        if (message.level == level) {
            texts.push_back(message.text);
        }
    }
    return texts;
}

std::vector<std::string> DaemonTest::logLines() const {
    std::vector<std::string> lines;
    for (const LoggedMessage& message : log.messages()) {
        lines.push_back(message.level + " " + message.text);
    }
    return lines;
}

}  // namespace orvane::test
