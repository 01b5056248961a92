// The daemon as it ships, with its fixed paths and its real clock, in a root directory of its own.
#include "platform/http/semaphore.h"
#include "process/private_root_test.h"
#include "support/daemon_test.h"
#include "support/in_child.h"
#include "support/sanitizers.h"
#include "support/scripted_server.h"
#include "support/test_ca.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>

namespace orvane::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* policy =
    R"({"etag":"v1","guard_config":{"capture":{"enabled":true,"hosts":["a.example","b.example"]}}})";

class RealBinaryTest : public PrivateRootTest {
  protected:
    /// How often anything in `process` runs during `time`.
    static std::size_t wakeUpsOf(const DaemonProcess& process, std::chrono::milliseconds time) {
        const std::size_t before = process.contextSwitches();
        std::this_thread::sleep_for(time);
        return process.contextSwitches() - before;
    }

    /// Whether nothing in `process` runs during two seconds, once it has come to rest.
    static bool sleepsSoundly(const DaemonProcess& process) {
        const bool settled =
            waitUntil([&] { return wakeUpsOf(process, std::chrono::milliseconds(300)) == 0; });
        return settled && wakeUpsOf(process, std::chrono::seconds(2)) == 0;
    }
};

/// Listens on another loopback address, whose system drops every packet.
class PacketDropper {
  public:
    PacketDropper(const char* address, std::uint16_t port) {
        address_.sin_family = AF_INET;
        address_.sin_port = htons(port);
        isReady_ = ::inet_pton(AF_INET, address, &address_.sin_addr) == 1 &&
                   ::bind(listener_, generic(), sizeof address_) == 0 &&
                   ::listen(listener_, 0) == 0 &&
                   ::connect(filler_, generic(), sizeof address_) == 0;
    }
    PacketDropper(const PacketDropper&) = delete;
    PacketDropper& operator=(const PacketDropper&) = delete;
    ~PacketDropper() {
        ::close(filler_);
        ::close(listener_);
    }

    [[nodiscard]] bool isReady() const { return isReady_; }

  private:
    [[nodiscard]] const sockaddr* generic() const {
        return reinterpret_cast<const sockaddr*>(&address_);
    }

    sockaddr_in address_{};
    int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int filler_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool isReady_ = false;
};

// The library gives the first address half of the lookup's 12 s, but not every version wakes up
// then to try the next one.
TEST_F(RealBinaryTest, AnIdentityLookupGetsToTheSecondAddressOfAName) {
    ScriptedServer server;
    const PacketDropper first("127.0.0.2", server.port());
    ASSERT_TRUE(first.isReady());
    writeFile(root.path() / "etc/host.conf", "multi on\n");
    // The machine would put its own address first.
    writeFile(root.path() / "etc/gai.conf", "precedence ::ffff:127.0.0.2/128 100\n");
    writeFile(root.path() / "etc/hosts", "127.0.0.2 two.test\n127.0.0.1 two.test\n");
    writeFile(root.setup() / "device-identity.json",
              nlohmann::json{{"device_token", "t"},
                             {"tenant_slug", "s"},
                             {"api_url", "http://two.test:" + std::to_string(server.port())}}
                  .dump());
    const DaemonProcess process(daemon());
    EXPECT_TRUE(server.waitForRequests(1));  // within 20 s; the next lookup would be later
}

TEST_F(RealBinaryTest, AWholeCycleWithTheFixedPaths) {
    ScriptedServer server;
    server.on(pollPath, {answer(200, policy), staySilent()});
    server.on(effectivePath, {answer(200, R"({"effective":true})")});
    writeFile(root.path() / "usr/sbin/ioreg",
              "#!/bin/sh\necho \"$@\" > /ioreg-arguments\necho '  \"IOPlatformUUID\" = \"U-1\"'\n");
    std::filesystem::permissions(root.path() / "usr/sbin/ioreg", std::filesystem::perms(0755));
    enroll(server.url() + "/");
    const DaemonProcess process(daemon());
    ASSERT_TRUE(server.waitForRequests(3));

    EXPECT_EQ(readFile(orvane() / "policy.json"), policy);
    EXPECT_EQ(readFile(orvane() / "policy-etag.json"), R"({"etag":"v1"})");
    EXPECT_EQ(readFile(orvane() / "guard-effective.json"), R"({"effective":true})");
    const auto capture = nlohmann::json::parse(readFile(root.setup() / "capture-policy.json"));
    const auto expected = nlohmann::json{{"enabled", true},
                                         {"intercept_hosts", {"a.example", "b.example"}},
                                         {"suppress_ech", false}};
    EXPECT_EQ(capture, expected);
    EXPECT_EQ(modeOf(root.setup() / "capture-policy.json"), 0644U);
    EXPECT_EQ(readFile(root.path() / "ioreg-arguments"), "-rd1 -c IOPlatformExpertDevice\n");
    EXPECT_EQ(server.requestsTo(effectivePath).at(0).target,
              std::string(effectivePath) + "?hardware_uuid=U-1");
    EXPECT_EQ(server.requestsTo(pollPath).at(1).header("If-None-Match"), "\"v1\"");
    const std::string activity = readFile(orvane() / "logs/policy-daemon.activity.jsonl");
    EXPECT_EQ(std::count(activity.begin(), activity.end(), '\n'), 2);
    EXPECT_THAT(process.logLines(),
                ElementsAre(StartsWith("default OrvanePolicyDaemon starting (pid="),
                            "default Resolving credentials from ~/.orvane/config…",
                            "default Using profile [managed] api=" + server.url() + "/",
                            "default policy updated (91 bytes)",
                            "default effective config updated (18 bytes)",
                            "default capture-policy applied from guard cascade: enabled=true "
                            "hosts=2 suppress_ech=false"));
    EXPECT_FALSE(std::filesystem::exists(root.path() / "wrong"));
}

TEST_F(RealBinaryTest, WithoutTheRegistryToolTheMachineIdIsSent) {
    ScriptedServer server;
    server.on(pollPath, {answer(200, policy), staySilent()});
    writeFile(root.path() / "etc/machine-id", "0123456789abcdef0123456789abcdef\n");
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_EQ(server.requestsTo(effectivePath).at(0).target,
              std::string(effectivePath) + "?hardware_uuid=dba612b0-5219-46fb-a8d7-076ba628c63b");
}

TEST_F(RealBinaryTest, ItsMemoryAndEnvironmentAreClosedToItsOwnAccount) {
    constexpr uid_t nobody = 65534;
    ScriptedServer server;
    server.on(pollPath, {staySilent()});
    enroll(server.url());
    std::filesystem::permissions(root.path(), std::filesystem::perms(0755));
    DaemonSetup setup = daemon();
    setup.prepare = [enter = setup.prepare] {
        return enter() && ::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 &&
               ::setuid(nobody) == 0;
    };
    const DaemonProcess process(setup);
    ASSERT_TRUE(server.waitForRequests(1));
    const std::filesystem::path proc = "/proc/" + std::to_string(process.pid());
    EXPECT_TRUE(asOrdinaryUser([&] { return ::access((proc / "status").c_str(), R_OK) == 0; }));
    for (const char* name : {"mem", "environ", "maps", "fd"}) {
        EXPECT_TRUE(asOrdinaryUser([&] {
            return ::open((proc / name).c_str(), O_RDONLY | O_CLOEXEC) < 0 && errno == EACCES;
        })) << name;
    }
}

TEST_F(RealBinaryTest, TheConfigFileIsReadFromTheAccountsHome) {
    ScriptedServer server;
    server.on(pollPath, {staySilent()});
    writeFile(orvane() / "config", "[connect]\napi_url=" + server.url() + "\napi_key=k\n");
    const DaemonProcess process(daemon());
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_THAT(process.logLines(),
                Contains("default Using profile [connect] api=" + server.url()));
}

class RealBinaryHomeTest : public RealBinaryTest {
  protected:
    /// Whether the daemon finds the config file that lies in `home`.
    bool finds(const std::string& home, const DaemonSetup& setup) {
        server.on(pollPath, {staySilent()});
        writeFile(root.path() / home / ".orvane/config",
                  "[connect]\napi_url=" + server.url() + "\napi_key=k\n");
        const DaemonProcess process(setup);
        return server.waitForRequests(1);
    }
    void account(const std::string& entry) const { writeFile(root.path() / "etc/passwd", entry); }

    const std::string user = std::to_string(::geteuid());
    ScriptedServer server;
};

TEST_F(RealBinaryHomeTest, AnAccountEntryMayBeLong) {
    account("agent:x:" + user + ":" + user + ":" + std::string(3000, 'n') +
            ":/home/agent:/bin/sh\n");
    EXPECT_TRUE(finds("home/agent", daemon()));
}

TEST_F(RealBinaryHomeTest, WithoutAnAccountTheVariableCounts) {
    account("");
    EXPECT_TRUE(finds("wrong", daemon()));
}

TEST_F(RealBinaryHomeTest, WithoutAHomeInTheAccountTheVariableCounts) {
    account("agent:x:" + user + ":" + user + ":::/bin/sh\n");
    EXPECT_TRUE(finds("wrong", daemon()));
}

TEST_F(RealBinaryHomeTest, WithoutEitherThereIsStillAPlace) {
    account("");
    DaemonSetup setup = daemon();
    setup.environment.erase("HOME");
    EXPECT_TRUE(finds("var/empty", setup));
}

TEST_F(RealBinaryTest, AHashedTrustStoreIsUsed) {
    const TestCa ca;
    ca.trustIn(root.path() / "etc/ssl/certs");
    ScriptedServer server(ca.issueForLoopback());
    server.on(pollPath, {staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    EXPECT_TRUE(server.waitForRequests(1));
}

TEST_F(RealBinaryTest, WithoutHashedNamesTheBundleIsUsed) {
    const TestCa ca;
    writeFile(root.path() / "etc/ssl/certs/ca-certificates.crt", readFile(ca.certificate()));
    ScriptedServer server(ca.issueForLoopback());
    server.on(pollPath, {staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    EXPECT_TRUE(server.waitForRequests(1));
}

TEST_F(RealBinaryTest, AnUnknownAuthorityGetsNoByteOfTheRequest) {
    const TestCa ca;
    const TestCa stranger;
    ca.trustIn(root.path() / "etc/ssl/certs");
    const ScriptedServer server(stranger.issueForLoopback());
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(process.waitForLog("Unexpected HTTP 0"));
    EXPECT_TRUE(process.waitForLog("The certificate for this server is invalid."));
    EXPECT_TRUE(server.requests().empty());
}

constexpr const char* wakesUp = "sanitizers have threads of their own, which wake up";

TEST_F(RealBinaryTest, AHeldPollWakesNothing) {
    ORVANE_SKIP_UNDER_SANITIZERS(wakesUp);
    ScriptedServer server;
    server.on(pollPath, {staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_TRUE(sleepsSoundly(process));
}

TEST_F(RealBinaryTest, AHeldPollOverTlsWakesNothing) {
    ORVANE_SKIP_UNDER_SANITIZERS(wakesUp);
    const TestCa ca;
    ca.trustIn(root.path() / "etc/ssl/certs");
    ScriptedServer server(ca.issueForLoopback());
    server.on(pollPath, {staySilent()});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_TRUE(sleepsSoundly(process));
}

TEST_F(RealBinaryTest, LargePoliciesAreHandledInLittleMemory) {
    ORVANE_SKIP_UNDER_SANITIZERS("sanitizers keep freed memory back");
    constexpr std::size_t bodySize = 24'000'000;
    constexpr std::size_t kib = 1024;
    const auto policyOf = [](std::size_t size, const std::string& tag) {
        std::string text =
            R"({"etag":")" + tag + R"(","guard_config":{"capture":{"hosts":[")" + tag;
        while (text.size() < size) {
            text += R"(","a-host-with-a-rather-long-name.)" + std::to_string(text.size()) +
                    ".service.internal.example.com";
        }
        return text + R"("]}}})";
    };
    ScriptedServer server;
    // Sizes that rise teach a heap to keep such pieces for the next time.
    server.on(pollPath,
              {answer(200, policyOf(100, "v0")), answer(304),
               answer(200, policyOf(bodySize / 4, "v1")), answer(200, policyOf(bodySize / 2, "v2")),
               answer(200, policyOf(bodySize, "v3")), staySilent()});
    server.on(effectivePath, std::vector<Step>(3, answer(404)));
    Semaphore measured(0);
    const auto waitForMeasurement = [&] { (void)measured.waitFor(std::chrono::seconds(20)); };
    server.on(effectivePath, {after(waitForMeasurement, answer(404))});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(server.waitForRequests(4));
    const std::size_t before = process.residentKiB();
    ASSERT_TRUE(server.waitForRequests(9));
    // The effective fetch may last long; the policy is on disk by then.
    EXPECT_LT(process.residentKiB(), before + kib);
    measured.signal();
    ASSERT_TRUE(server.waitForRequests(10));
    EXPECT_LT(process.peakKiB(), before + 3 * bodySize / kib + 4 * kib);
    EXPECT_LT(process.residentKiB(), before + kib);
}

TEST_F(RealBinaryTest, ASleepWakesNothing) {
    ORVANE_SKIP_UNDER_SANITIZERS(wakesUp);
    ScriptedServer server;
    server.on(pollPath, {answer(500)});
    enroll(server.url());
    const DaemonProcess process(daemon());
    ASSERT_TRUE(process.waitForLog("Unexpected HTTP 500"));
    EXPECT_TRUE(sleepsSoundly(process));
}

/// The journal's socket, at its fixed place in the daemon's root.
class FakeJournal {
  public:
    explicit FakeJournal(const std::filesystem::path& root)
        : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const auto directory = root / "run/systemd/journal";
        std::filesystem::create_directories(directory);
        const std::string name = directory / "socket";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(name.begin(), name.end(), std::begin(address.sun_path));
        const timeval timeLimit{20, 0};
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &timeLimit, sizeof timeLimit), 0);
    }
    FakeJournal(const FakeJournal&) = delete;
    FakeJournal& operator=(const FakeJournal&) = delete;
    ~FakeJournal() { ::close(socket_); }

    std::string receive() const {
        std::array<char, 4096> buffer{};
        const auto size = ::recv(socket_, buffer.data(), buffer.size(), 0);
        return {buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }

  private:
    int socket_;
};

TEST_F(RealBinaryTest, UnderAServiceManagerMessagesGoToTheJournalWithTheirFields) {
    const FakeJournal journal(root.path());
    DaemonSetup setup = daemon();
    writeFile(setup.logFile, "");
    struct stat status {};
    ASSERT_EQ(::stat(setup.logFile.c_str(), &status), 0);
    setup.environment["JOURNAL_STREAM"] =
        std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    const DaemonProcess process(setup);
    EXPECT_EQ(journal.receive(),
              "PRIORITY=5\nSYSLOG_IDENTIFIER=OrvanePolicyDaemon\n"
              "SUBSYSTEM=dev.orvane.setup\nCATEGORY=policy-daemon\n"
              "MESSAGE=OrvanePolicyDaemon starting (pid=" +
                  std::to_string(process.pid()) + ")\n");
    // The runner has a logger of its own.
    EXPECT_THAT(journal.receive(), HasSubstr("SUBSYSTEM=dev.orvane.setup\nCATEGORY=policy-daemon\n"
                                             "MESSAGE=Resolving credentials"));
    EXPECT_TRUE(readFile(setup.logFile).empty());
}

}  // namespace
}  // namespace orvane::test
