// Whatever is planted under the names that the daemon reads and writes: a poll cycle ends, no link
// is followed when a file is replaced, and once the obstacle is gone, the next cycle succeeds.
#include "daemon/leftovers.h"
#include "daemon/policy_runner.h"
#include "support/daemon_test.h"
#include "support/in_child.h"
#include "support/sanitizers.h"
#include "support/scripted_server.h"
#include "support/virtual_clock.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using namespace std::string_literals;

constexpr uid_t nobody = 65534;

/// What the server has to give in the cycle `number`, different every time.
std::string policyOf(int number) {
    std::string hosts = R"("a")";
    for (int i = 1; i < number; ++i) {
        hosts += R"(,"a")";
    }
    return R"({"etag":"v)" + std::to_string(number) + R"(","config":{"capture":{"hosts":[)" +
           hosts + "]}}}";
}
std::string effectiveOf(int number) {
    return R"({"cycle":)" + std::to_string(number) + "}";
}

/// Where the daemon finds its credentials.
enum class Source { none, enrollment, config };

/// The ground of tests whose daemon runs in a process of its own, as this user or as an ordinary
/// one.
class PlantedFilesTest : public DaemonTest {
  protected:
    PlantedFilesTest() {
        (void)::umask(022);
        fs::permissions(root(), fs::perms(0755));
    }

    /// One cycle in a child process that is `ordinary` or has this one's privileges.
    static void runCycle(int number, Source source, bool ordinary) {
        (void)(ordinary ? inUnprivilegedChild : inChild)([&]() -> std::string {
            ScriptedServer server;
            if (source == Source::enrollment) {
                enroll(server.url());
            } else if (source == Source::config) {
                writeFile(orvane() / "config",
                          "[default]\napi_url=" + server.url() + "\napi_key=key-1\n");
            }
            server.on(pollPath, {answer(200, policyOf(number)), answer(500)});
            server.on(effectivePath, {answer(200, effectiveOf(number))});
            virtual_clock::onSleep([](double) { throw virtual_clock::EndOfLoop(); });
            PolicyRunner runner;
            try {
                runner.run();
            } catch (const virtual_clock::EndOfLoop&) {
            }
            return "";
        });
    }

    /// What was logged since the last time, without the profile's line, whose port is never the
    /// same.
    std::vector<std::string> takeLog() {
        auto lines = logLines();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("default Using profile");
        });
        log.clear();
        return lines;
    }

    /// Gives `path` and what is below it to the user that ordinary children run as.
    static void giveAway(const fs::path& path) {
        if (::geteuid() != 0) {
            return;
        }
        (void)::lchown(path.c_str(), nobody, nobody);
        if (fs::is_directory(fs::symlink_status(path))) {
            for (const auto& entry : fs::directory_iterator(path)) {
                giveAway(entry.path());
            }
        }
    }
};

// --- Obstacles

enum class Obstacle {
    linkToFile,
    danglingLink,
    linkToDirectory,
    linkToItself,
    fifo,
    socket,
    device,
    emptyDirectory,
    fullDirectory,
    readOnlyFile,
    unreadableFile
};

const std::map<Obstacle, const char*> obstacleNames{
    {Obstacle::linkToFile, "a link to a file"},
    {Obstacle::danglingLink, "a dangling link"},
    {Obstacle::linkToDirectory, "a link to a directory"},
    {Obstacle::linkToItself, "a link to itself"},
    {Obstacle::fifo, "a FIFO"},
    {Obstacle::socket, "a socket"},
    {Obstacle::device, "a device"},
    {Obstacle::emptyDirectory, "an empty directory"},
    {Obstacle::fullDirectory, "a directory with content"},
    {Obstacle::readOnlyFile, "a read-only file"},
    {Obstacle::unreadableFile, "an unreadable file"}};

bool isDirectory(Obstacle obstacle) {
    return obstacle == Obstacle::emptyDirectory || obstacle == Obstacle::fullDirectory;
}

void makeSocket(const fs::path& path) {
    const std::string name = path.filename();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof address.sun_path) {
        throw std::runtime_error("too long for a socket: " + name);
    }
    std::strcpy(address.sun_path, name.c_str());
    // From within the directory: a whole path does not fit where temporary files are deep down.
    const fs::path before = fs::current_path();
    fs::current_path(path.parent_path());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    (void)::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::close(socket);
    fs::current_path(before);
}

/// The number of /dev/null.
dev_t nullDevice() {
    struct stat status {};
    (void)::stat("/dev/null", &status);
    return status.st_rdev;
}

/// Creates `obstacle` at `path`. Links point into `victims`. False if that is not permitted.
bool plant(Obstacle obstacle, const fs::path& path, const fs::path& victims) {
    fs::create_directories(path.parent_path());
    switch (obstacle) {
        case Obstacle::linkToFile:
            fs::create_symlink(victims / "file", path);
            return true;
        case Obstacle::danglingLink:
            fs::create_symlink(victims / "nothing", path);
            return true;
        case Obstacle::linkToDirectory:
            fs::create_symlink(victims / "directory", path);
            return true;
        case Obstacle::linkToItself:
            fs::create_symlink(path.filename(), path);
            return true;
        case Obstacle::fifo:
            return ::mkfifo(path.c_str(), 0666) == 0;
        case Obstacle::socket:
            makeSocket(path);
            return true;
        case Obstacle::device:
            return ::mknod(path.c_str(), S_IFCHR | 0666, nullDevice()) == 0;
        case Obstacle::fullDirectory:
            writeFile(path / "kept", "kept");
            return true;
        case Obstacle::emptyDirectory:
            fs::create_directories(path);
            return true;
        case Obstacle::readOnlyFile:
        case Obstacle::unreadableFile:
            writeFile(path, "planted");
            fs::permissions(path, fs::perms(obstacle == Obstacle::readOnlyFile ? 0444 : 0));
            return true;
    }
    return false;
}

/// All that this user can see of what is at `path`.
std::string describe(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return "nothing";
    }
    std::string text = std::to_string(status.st_ino) + " " + std::to_string(status.st_mode);
    if (S_ISLNK(status.st_mode)) {
        text += " " + fs::read_symlink(path).string();
    } else if (S_ISREG(status.st_mode)) {
        const bool readable = ::access(path.c_str(), R_OK) == 0;
        text += " " + (readable ? readFile(path) : std::to_string(status.st_size) + " bytes");
    } else if (S_ISDIR(status.st_mode)) {
        for (const std::string& name : namesIn(path)) {
            text += " " + name + "(" + describe(path / name) + ")";
        }
    }
    return text;
}

// --- Places

/// What the daemon does with the file at a target.
enum class Use {
    input,        ///< reads it
    destination,  ///< replaces it by a finished file
    temporary,    ///< the file that will replace it
    captureFile,
    activityFile,
    logDirectory,
    orvaneDirectory,
    setupDirectory
};

struct Target {
    const char* name;
    Use use;
    std::string path;  ///< below the root
    Source source = Source::enrollment;
};

std::ostream& operator<<(std::ostream& stream, const Target& target) {
    return stream << target.name;
}

const std::string home = "home/.orvane/";
const std::string shared = "private/tmp/dev.orvane.setup/";

const std::vector<Target> targets{
    {"Enrollment", Use::input, shared + "enroll-config.json", Source::config},
    {"DeviceIdentity", Use::input, shared + "device-identity.json", Source::config},
    {"Config", Use::input, home + "config", Source::none},
    {"Policy", Use::destination, home + "policy.json"},
    {"Etag", Use::destination, home + "policy-etag.json"},
    {"Effective", Use::destination, home + "guard-effective.json"},
    {"PolicyTemporary", Use::temporary, home + "policy.json.tmp"},
    {"EtagTemporary", Use::temporary, home + "policy-etag.json.tmp"},
    {"EffectiveTemporary", Use::temporary, home + "guard-effective.json.tmp"},
    {"CaptureFile", Use::captureFile, shared + "capture-policy.json"},
    {"ActivityFile", Use::activityFile, home + "logs/policy-daemon.activity.jsonl"},
    {"LogDirectory", Use::logDirectory, home + "logs"},
    {"OrvaneDirectory", Use::orvaneDirectory, "home/.orvane"},
    {"SetupDirectory", Use::setupDirectory, "private/tmp/dev.orvane.setup", Source::config},
};

/// What a poll cycle makes of an obstacle at a target.
struct Outcome {
    enum class Effect {
        stays,   ///< untouched
        goes,    ///< and is not followed; a file of the daemon's may be there now
        isUsed,  ///< as a directory or file of the daemon's own would be
    };
    Effect effect = Effect::goes;
    std::string error = "";  ///< of the write that it foils
};

using Effect = Outcome::Effect;

/// Of an obstacle where the daemon needs a directory.
Outcome outcomeAsDirectory(Obstacle obstacle, const std::string& whenDangling) {
    switch (obstacle) {
        case Obstacle::emptyDirectory:
        case Obstacle::fullDirectory:
        case Obstacle::linkToDirectory:
            return {Effect::isUsed};
        case Obstacle::danglingLink:
            return {Effect::stays, whenDangling};
        case Obstacle::linkToItself:
            return {Effect::stays, "Too many levels of symbolic links"};
        default:
            return {Effect::stays, "Not a directory"};
    }
}

Outcome outcomeOf(Obstacle obstacle, Use use, bool ordinary) {
    switch (use) {
        case Use::input:
            return {Effect::stays};
        case Use::destination:
            return obstacle == Obstacle::fullDirectory ? Outcome{Effect::stays, "File exists"}
                                                       : Outcome{};
        case Use::temporary:
        case Use::captureFile:
            return isDirectory(obstacle) ? Outcome{Effect::stays, "Is a directory"} : Outcome{};
        case Use::activityFile: {
            // An open file is appended to, through a link too. Lines are lost in silence.
            const bool opens = obstacle == Obstacle::linkToFile || obstacle == Obstacle::device ||
                               (!ordinary && (obstacle == Obstacle::readOnlyFile ||
                                              obstacle == Obstacle::unreadableFile));
            return {opens ? Effect::isUsed : isDirectory(obstacle) ? Effect::stays : Effect::goes};
        }
        case Use::logDirectory:
            return {outcomeAsDirectory(obstacle, "").effect};
        case Use::orvaneDirectory:
            return outcomeAsDirectory(obstacle, "File exists");
        case Use::setupDirectory:
            break;
    }
    return outcomeAsDirectory(obstacle, "No such file or directory");
}

class PlantedFileTest : public PlantedFilesTest, public testing::WithParamInterface<Target> {
  protected:
    void SetUp() override {
        ORVANE_SKIP_UNDER_THREAD_SANITIZER("what threads do does not depend on files");
    }

    [[nodiscard]] static fs::path victims() { return root() / "victims"; }

    /// A root that holds nothing but a few files that links may lead to.
    static void startAfresh() {
        for (const auto& entry : fs::directory_iterator(root())) {
            fs::remove_all(entry.path());
        }
        writeFile(victims() / "file", "victim");
        writeFile(victims() / "directory/kept", "kept");
        fs::create_directories(root() / "home");
        fs::create_directories(root() / "private/tmp");
    }

    /// What a poll cycle logs.
    [[nodiscard]] static std::vector<std::string> linesOf(int number, Source source,
                                                          const fs::path& path, Use use,
                                                          const std::string& error,
                                                          bool policyIsReadable) {
        std::vector<std::string> lines{"default Resolving credentials from ~/.orvane/config…"};
        if (source == Source::none) {
            lines.emplace_back("default No usable profile — sleeping 30s and retrying");
            return lines;
        }
        const auto write = [&](const std::string& name) {
            const fs::path file = orvane() / name;
            const bool foiled =
                !error.empty() && (use == Use::orvaneDirectory || path.string() == file.string() ||
                                   path.string() == file.string() + ".tmp");
            if (foiled) {
                lines.push_back("error atomic write to " + file.string() + " failed: " + error);
            }
            return !foiled;
        };
        const auto bytes = [](const std::string& text) {
            return " (" + std::to_string(text.size()) + " bytes)";
        };
        const bool stored = write("policy.json");
        (void)write("policy-etag.json");
        lines.push_back("default policy updated" + bytes(policyOf(number)));
        (void)write("guard-effective.json");
        lines.push_back("default effective config updated" + bytes(effectiveOf(number)));
        if (stored && policyIsReadable) {
            const bool foiled =
                !error.empty() && (use == Use::captureFile || use == Use::setupDirectory);
            lines.push_back(
                foiled ? "error capture-policy write failed: " + error
                       : "default capture-policy applied from guard cascade: enabled=false hosts=" +
                             std::to_string(number) + " suppress_ech=false");
        }
        lines.emplace_back("error Unexpected HTTP 500");
        return lines;
    }

    void expectEndured(Obstacle obstacle, bool ordinary) {
        startAfresh();
        const fs::path path = root() / GetParam().path;
        if (!plant(obstacle, path, victims())) {
            return;  // a device takes privileges
        }
        if (ordinary) {
            giveAway(root() / "home");
            giveAway(setup());
            giveAway(victims());
        }
        fs::permissions(root() / "private/tmp", fs::perms(01777));
        const std::string before = describe(path);
        const std::string victimsBefore = describe(victims());

        const Use use = GetParam().use;
        const Outcome outcome = outcomeOf(obstacle, use, ordinary);
        runCycle(1, GetParam().source, ordinary);
        // A temporary that is there gives its mode to the file.
        const bool unreadable = ordinary && obstacle == Obstacle::unreadableFile &&
                                GetParam().name == "PolicyTemporary"s;
        EXPECT_THAT(takeLog(), ElementsAreArray(linesOf(1, GetParam().source, path, use,
                                                        outcome.error, !unreadable)));
        if (outcome.effect == Effect::stays) {
            EXPECT_EQ(describe(path), before);
        } else if (outcome.effect == Effect::goes) {
            EXPECT_THAT(describe(path), ::testing::Not(before));
            EXPECT_TRUE(!fs::exists(fs::symlink_status(path)) || fs::is_regular_file(path));
            EXPECT_FALSE(fs::is_symlink(path));
        }
        if (outcome.effect != Effect::isUsed) {
            EXPECT_EQ(describe(victims()), victimsBefore);
        }

        fs::remove_all(path);
        runCycle(2, GetParam().source == Source::none ? Source::config : GetParam().source,
                 ordinary);
        EXPECT_THAT(takeLog(), ElementsAreArray(linesOf(2, Source::config, path, use, "", true)));
        EXPECT_EQ(readFile(orvane() / "policy.json"), policyOf(2));
        EXPECT_EQ(readFile(orvane() / "policy-etag.json"), R"({"etag":"v2"})");
        EXPECT_EQ(readFile(orvane() / "guard-effective.json"), effectiveOf(2));
        EXPECT_EQ(readFile(captureFile()),
                  R"({"enabled":false,"intercept_hosts":["a","a"],"suppress_ech":false})");
        EXPECT_EQ(modeOf(captureFile()), 0644U);
        EXPECT_EQ(activity().back()["status"], 500);
    }
};

TEST_P(PlantedFileTest, NothingInTheWayOfAPrivilegedDaemonHoldsOrMisleadsIt) {
    for (const auto& [obstacle, name] : obstacleNames) {
        SCOPED_TRACE(name);
        expectEndured(obstacle, ::geteuid() != 0);
    }
}

TEST_P(PlantedFileTest, NothingInTheWayOfAnOrdinaryDaemonHoldsOrMisleadsIt) {
    for (const auto& [obstacle, name] : obstacleNames) {
        SCOPED_TRACE(name);
        expectEndured(obstacle, true);
    }
}

INSTANTIATE_TEST_SUITE_P(, PlantedFileTest, testing::ValuesIn(targets),
                         [](const auto& target) { return std::string(target.param.name); });

// --- Directories that may be written but not listed

class UnlistedDirectoryTest : public PlantedFilesTest {
  protected:
    UnlistedDirectoryTest() {
        (void)::umask(0077);  // as the service has it
        fs::create_directories(orvane());
        fs::create_directories(setup());
        fs::permissions(root() / "private", fs::perms(0755));
        fs::permissions(root() / "private/tmp", fs::perms(0755));
        giveAway(root() / "home");
    }

    void expectAllStored() {
        runCycle(1, Source::config, true);
        for (const std::string& line : takeLog()) {
            EXPECT_THAT(line, ::testing::Not(::testing::HasSubstr("write")));
        }
        EXPECT_EQ(readFile(orvane() / "policy.json"), policyOf(1));
        EXPECT_EQ(readFile(orvane() / "policy-etag.json"), R"({"etag":"v1"})");
        EXPECT_EQ(readFile(orvane() / "guard-effective.json"), effectiveOf(1));
        EXPECT_EQ(modeOf(orvane() / "policy.json"), 0600U);
        EXPECT_EQ(readFile(captureFile()),
                  R"({"enabled":false,"intercept_hosts":["a"],"suppress_ech":false})");
        EXPECT_EQ(modeOf(captureFile()), 0644U);
    }
};

TEST_F(UnlistedDirectoryTest, ADropBoxAsTheSetupDirectory) {
    fs::permissions(setup(), fs::perms(01733));
    expectAllStored();
}

TEST_F(UnlistedDirectoryTest, AHome) {
    fs::permissions(setup(), fs::perms(01777));
    fs::permissions(orvane(), fs::perms(0300));
    expectAllStored();
}

// --- A setup directory that belongs to another account, and where every account may create files

class StickySetupDirectoryTest : public PlantedFilesTest {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "takes root, who can be two users";
        }
        fs::create_directories(orvane());
        giveAway(root() / "home");
        fs::create_directories(setup());
        fs::permissions(setup(), fs::perms(01777));
    }
};

TEST_F(StickySetupDirectoryTest, AForeignCaptureFileStaysAndIsLogged) {
    writeFile(captureFile(), "planted");
    runCycle(1, Source::config, true);
    EXPECT_EQ(readFile(captureFile()), "planted");
    EXPECT_THAT(namesIn(setup()), ElementsAre("capture-policy.json"));
    EXPECT_THAT(takeLog(), Contains("error capture-policy write failed: Operation not permitted"));
}

TEST_F(StickySetupDirectoryTest, ForeignThingsThatLookLikeLeftoversStay) {
    const fs::path leftover =
        setup() / (".capture-policy.json." + std::to_string(nobody) + ".0123456789abcdef.tmp");
    for (const auto& [obstacle, name] : obstacleNames) {
        SCOPED_TRACE(name);
        writeFile(root() / "victims/file", "victim");
        writeFile(root() / "victims/directory/kept", "kept");
        ASSERT_TRUE(plant(obstacle, leftover, root() / "victims"));
        const std::string before = describe(leftover) + describe(root() / "victims");
        (void)asOrdinaryUser([] {
            removeLeftovers();
            return true;
        });
        EXPECT_EQ(describe(leftover) + describe(root() / "victims"), before);
        fs::remove_all(leftover);
    }
}

/// No promise, but how it is: docs/security.md.
TEST_F(StickySetupDirectoryTest, AForeignEnrollmentIsBelieved) {
    enroll("http://127.0.0.1:1", "planted");
    runCycle(1, Source::config, true);
    EXPECT_THAT(logLines(), Contains("default Using profile [managed] api=http://127.0.0.1:1"));
}

/// Files that have hundreds of MiB and no blocks: they cost their owner nothing.
class SparseSetupFileTest : public StickySetupDirectoryTest,
                            public testing::WithParamInterface<const char*> {
  protected:
    /// The most that any cycle of this test has taken so far.
    static long peakKiB() {
        rusage usage{};
        (void)::getrusage(RUSAGE_CHILDREN, &usage);
        return usage.ru_maxrss;
    }
};

TEST_P(SparseSetupFileTest, OfAnotherAccountTakesNoMemory) {
    runCycle(1, Source::config, true);
    const long usual = peakKiB();
    fs::remove(captureFile());
    log.clear();
    const fs::path file = setup() / GetParam();
    writeFile(file, "");
    fs::resize_file(file, std::uintmax_t{99} << 20U);  // below the limit for what the daemon stores
    runCycle(2, Source::config, true);
    EXPECT_LT(peakKiB(), usual + 4096);
    EXPECT_THAT(logLines(), Contains("default policy updated (" +
                                     std::to_string(policyOf(2).size()) + " bytes)"));
}

INSTANTIATE_TEST_SUITE_P(, SparseSetupFileTest,
                         testing::Values("enroll-config.json", "device-identity.json",
                                         "capture-policy.json"),
                         [](const auto& name) {
                             std::string letters = name.param;
                             std::erase_if(letters, [](char c) { return c < 'a' || c > 'z'; });
                             return letters;
                         });

/// A file that says what the daemon would, at great length.
class LongCaptureFileTest : public StickySetupDirectoryTest {
  protected:
    /// Of 64 MiB, which this process does not hold either: its children would start with them.
    static void writeLongCaptureFile() {
        std::ofstream file(captureFile());
        file << R"({"enabled":false,)";
        for (int i = 0; i < 64; ++i) {
            file << std::string(std::size_t{1} << 20U, ' ');
        }
        file << R"("intercept_hosts":["a"],"suppress_ech":false})";
    }
};

TEST_F(LongCaptureFileTest, IsComparedInLittleMemoryAndStays) {
    ORVANE_SKIP_UNDER_SANITIZERS("it measures memory, and sanitizers need some");
    runCycle(1, Source::config, true);
    rusage usual{};
    (void)::getrusage(RUSAGE_CHILDREN, &usual);
    fs::remove(captureFile());
    writeLongCaptureFile();
    const auto size = fs::file_size(captureFile());
    log.clear();
    runCycle(1, Source::config, true);
    rusage usage{};
    (void)::getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, usual.ru_maxrss + 4096);
    EXPECT_THAT(takeLog(), ::testing::Not(Contains(::testing::HasSubstr("capture-policy"))));
    EXPECT_EQ(fs::file_size(captureFile()), size);
}

// --- Modes

class ModesTest : public PlantedFilesTest, public testing::WithParamInterface<mode_t> {
  protected:
    /// Two cycles under the mask, as a fresh daemon takes them.
    static void runCycles(Source source) {
        (void)::umask(GetParam());
        runCycle(1, source, false);
        runCycle(2, source, false);
        (void)::umask(022);
    }

    /// Expects the modes of everything below `directory`, which was not there before.
    static void expectModes(const fs::path& directory, std::size_t count) {
        std::size_t seen = 0;
        for (const auto& entry : fs::recursive_directory_iterator(directory)) {
            const unsigned all = entry.is_directory() ? 0777 : 0666;
            const unsigned expected = entry.path() == captureFile() ? 0644 : all & ~GetParam();
            EXPECT_EQ(modeOf(entry.path()), expected) << entry.path();
            ++seen;
        }
        EXPECT_EQ(seen, count);
    }
};

TEST_P(ModesTest, TheHomesFilesAndDirectoriesGetWhatTheMaskLeaves) {
    runCycles(Source::enrollment);
    expectModes(root() / "home", 6);  // .orvane, three files, logs, one file
}

TEST_P(ModesTest, TheCaptureFileIsForAllToReadInDirectoriesThatGetWhatTheMaskLeaves) {
    runCycles(Source::config);
    expectModes(root() / "private", 3);  // tmp, dev.orvane.setup, one file
}

INSTANTIATE_TEST_SUITE_P(Umask, ModesTest, testing::Values(0U, 022U, 077U), [](const auto& mask) {
    return mask.param == 0 ? "000"s : mask.param == 022 ? "022"s : "077"s;
});

}  // namespace
}  // namespace orvane::test
