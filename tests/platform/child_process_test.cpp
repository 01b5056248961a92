#include "platform/process/child_process.h"

#include "platform/process/environment.h"
#include "platform/system_calls.h"
#include "support/in_child.h"
#include "support/test_files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

namespace {

namespace fs = std::filesystem;
using ::testing::Optional;

class ChildProcessTest : public ::testing::Test {
  protected:
    /// A shell script with `body`, executable.
    [[nodiscard]] fs::path script(std::string_view body) const {
        const fs::path path = directory_.path() / "tool";
        writeFile(path, "#!/bin/sh\n" + std::string(body) + "\n");
        fs::permissions(path, fs::perms(0755));
        return path;
    }

    [[nodiscard]] fs::path directory() const { return directory_.path(); }

  private:
    TempDirectory directory_;
};

TEST_F(ChildProcessTest, TheOutputIsWhatTheToolPrints) {
    EXPECT_THAT(outputOf(script("printf 'one\\ntwo\\000three'"), {}),
                Optional(std::string("one\ntwo\0three", 13)));
}

TEST_F(ChildProcessTest, AToolThatPrintsNothingHasAnEmptyOutput) {
    EXPECT_THAT(outputOf(script(":"), {}), Optional(std::string()));
}

TEST_F(ChildProcessTest, OutputLongerThanOneReadIsComplete) {
    const auto output = outputOf(
        script("i=0; while [ $i -lt 1000 ]; do echo 0123456789012345678; i=$((i+1)); done"), {});
    ASSERT_TRUE(output);
    EXPECT_EQ(output->size(), 20'000U);
}

TEST_F(ChildProcessTest, ArgumentsArriveAsTheyAre) {
    EXPECT_THAT(outputOf(script("printf '[%s]' \"$0\" \"$@\""),
                         {"-rd1", "", "a b", "$HOME", "*", "'\"\\", "\u00E9\n"}),
                Optional("[" + (directory() / "tool").string() +
                         "][-rd1][][a b][$HOME][*]['\"\\][\u00E9\n]"));
}

TEST_F(ChildProcessTest, TheWorkingDirectoryIsInherited) {
    EXPECT_THAT(outputOf(script("pwd"), {}), Optional(fs::current_path().string() + "\n"));
}

TEST_F(ChildProcessTest, TheEnvironmentIsInherited) {
    ::setenv("ORVANE_TEST_VARIABLE", "a value", 1);
    EXPECT_THAT(outputOf(script("printf '%s' \"$ORVANE_TEST_VARIABLE\""), {}),
                Optional(std::string("a value")));
}

TEST_F(ChildProcessTest, StandardInputIsInherited) {
    writeFile(directory() / "input", "from the parent");
    const int original = ::dup(STDIN_FILENO);
    const int input = ::open((directory() / "input").c_str(), O_RDONLY | O_CLOEXEC);
    ::dup2(input, STDIN_FILENO);
    const auto output = outputOf(script("cat"), {});
    ::dup2(original, STDIN_FILENO);
    ::close(input);
    ::close(original);
    EXPECT_THAT(output, Optional(std::string("from the parent")));
}

TEST_F(ChildProcessTest, StandardErrorIsNotPartOfTheOutput) {
    EXPECT_THAT(outputOf(script("echo complaint >&2; echo answer"), {}),
                Optional(std::string("answer\n")));
}

TEST_F(ChildProcessTest, StandardErrorDoesNotReachTheParents) {
    const fs::path file = directory() / "stderr";
    const int original = ::dup(STDERR_FILENO);
    const int captured = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ::dup2(captured, STDERR_FILENO);
    const auto output = outputOf(script("echo complaint >&2"), {});
    ::dup2(original, STDERR_FILENO);
    ::close(original);
    ::close(captured);
    EXPECT_THAT(output, Optional(std::string()));
    EXPECT_EQ(readFile(file), "");
}

TEST_F(ChildProcessTest, TheExitStatusIsIgnored) {
    EXPECT_THAT(outputOf(script("echo answer; exit 3"), {}), Optional(std::string("answer\n")));
}

TEST_F(ChildProcessTest, WhatAKilledToolPrintedIsKept) {
    EXPECT_THAT(outputOf(script("echo answer; kill -9 $$"), {}), Optional(std::string("answer\n")));
}

TEST_F(ChildProcessTest, TheToolHasAProcessGroupOfItsOwn) {
    EXPECT_THAT(outputOf(script("set -- $(ps -o pgid= -p $$); [ $1 = $$ ] && echo its own"), {}),
                Optional(std::string("its own\n")));
}

TEST_F(ChildProcessTest, WhatTheParentIgnoresEndsTheTool) {
    for (const std::string signal : {"PIPE", "XFSZ"}) {
        const auto output = inChild([&] {
            ignoreWriteSignals();
            return outputOf("/bin/sh", {"-c", "echo before; kill -" + signal + " $$; echo after"})
                .value_or("none");
        });
        EXPECT_EQ(output, "before\n") << signal;
    }
}

TEST_F(ChildProcessTest, TheToolGetsNoOtherDescriptor) {
    // The lowest free one and a high one, both without close-on-exec.
    const int low = ::open("/dev/null", O_RDONLY);
    const int high = ::fcntl(low, F_DUPFD, 200);
    const auto output = outputOf(script("for each; do [ -e /dev/fd/$each ] && echo $each; done; :"),
                                 {"0", "1", "2", std::to_string(low), std::to_string(high)});
    ::close(low);
    ::close(high);
    EXPECT_THAT(output, Optional(std::string("0\n1\n2\n")));
}

TEST_F(ChildProcessTest, WhatCannotBeLaunchedHasNoOutput) {
    const fs::path tool = script("echo answer");
    EXPECT_EQ(outputOf(directory() / "missing", {}), std::nullopt);
    EXPECT_EQ(outputOf(directory(), {}), std::nullopt);
    EXPECT_EQ(outputOf("", {}), std::nullopt);
    EXPECT_EQ(outputOf(tool / "below", {}), std::nullopt);
    fs::permissions(tool, fs::perms(0644));
    EXPECT_EQ(outputOf(tool, {}), std::nullopt);
}

TEST_F(ChildProcessTest, OnlyForARegularFileAProcessIsStarted) {
    const fs::path tool = script("echo answer");
    int launches = 0;
    SystemCallHooks hooks;
    hooks.refuse = [&](std::string_view call) {
        launches += call == "posix_spawn" ? 1 : 0;
        return 0;
    };
    const WithSystemCallHooks installed(hooks);
    EXPECT_EQ(outputOf("/dev/null", {}), std::nullopt);
    EXPECT_EQ(outputOf(directory(), {}), std::nullopt);
    EXPECT_EQ(outputOf(directory() / "missing", {}), std::nullopt);
    EXPECT_EQ(launches, 0);
#ifdef __linux__  // where the call is hooked
    EXPECT_THAT(outputOf(tool, {}), Optional(std::string("answer\n")));
    EXPECT_EQ(launches, 1);
#endif
}

TEST_F(ChildProcessTest, AnInterpreterThatIsMissingCountsAsNotLaunched) {
    writeFile(directory() / "tool", "#!/nonexistent/interpreter\n");
    fs::permissions(directory() / "tool", fs::perms(0755));
    EXPECT_EQ(outputOf(directory() / "tool", {}), std::nullopt);
}

TEST_F(ChildProcessTest, ALinkToAToolIsFollowed) {
    fs::create_symlink(script("echo answer"), directory() / "link");
    EXPECT_THAT(outputOf(directory() / "link", {}), Optional(std::string("answer\n")));
}

TEST_F(ChildProcessTest, ToolsAreNotLookedUpInThePath) {
    EXPECT_EQ(outputOf("echo", {"x"}), std::nullopt);
}

TEST_F(ChildProcessTest, TheToolLeavesNoZombie) {
    ASSERT_TRUE(outputOf(script(":"), {}));
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(ChildProcessTest, NoDescriptorStaysOpen) {
    const fs::path tool = script("echo answer");
    const auto before = openDescriptors().size();
    ASSERT_TRUE(outputOf(tool, {}));
    ASSERT_FALSE(outputOf(directory() / "missing", {}));
    fs::permissions(tool, fs::perms(0644));
    ASSERT_FALSE(outputOf(tool, {}));
    EXPECT_EQ(openDescriptors().size(), before);
}

bool isPipe(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

TEST_F(ChildProcessTest, ThePipesAreNotInheritedByOtherChildren) {
    const fs::path tool = script(":");
    int pipeEnds = 0;
    int inheritable = 0;
    SystemCallHooks hooks;
    hooks.close = [&](int descriptor) -> std::optional<int> {
        if (isPipe(descriptor)) {
            ++pipeEnds;
            inheritable += ::fcntl(descriptor, F_GETFD) == FD_CLOEXEC ? 0 : 1;
        }
        return std::nullopt;
    };
    {
        const WithSystemCallHooks installed(hooks);
        ASSERT_TRUE(outputOf(tool, {}));
    }
    EXPECT_EQ(pipeEnds, 4);
    EXPECT_EQ(inheritable, 0);
}

TEST_F(ChildProcessTest, TheWaitComesBeforeTheRead) {
    std::vector<std::string> calls;
    SystemCallHooks hooks;
    hooks.waitpid = [&]() -> std::optional<int> {
        calls.emplace_back("wait");
        return std::nullopt;
    };
    hooks.read = [&](int, std::size_t) -> std::optional<ssize_t> {
        calls.emplace_back("read");
        return std::nullopt;
    };
    {
        const fs::path tool = script("echo answer");
        const WithSystemCallHooks installed(hooks);
        ASSERT_TRUE(outputOf(tool, {}));
    }
    EXPECT_THAT(calls, ::testing::ElementsAre("wait", "read", "read"));
}

TEST_F(ChildProcessTest, InterruptionsChangeNothing) {
    const fs::path tool = script("echo answer");
    int waitInterruptions = 2;
    int readInterruptions = 2;
    SystemCallHooks hooks;
    hooks.waitpid = [&] {
        return waitInterruptions-- > 0 ? std::optional(failWith(EINTR)) : std::nullopt;
    };
    hooks.read = [&](int, std::size_t) {
        return readInterruptions-- > 0 ? std::optional<ssize_t>(failWith(EINTR)) : std::nullopt;
    };
    {
        const WithSystemCallHooks installed(hooks);
        EXPECT_THAT(outputOf(tool, {}), Optional(std::string("answer\n")));
    }
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(ChildProcessTest, AFailedReadEndsTheOutput) {
    const fs::path tool = script("echo answer");
    SystemCallHooks hooks;
    hooks.read = [](int, std::size_t) { return std::optional<ssize_t>(failWith(EIO)); };
    const WithSystemCallHooks installed(hooks);
    EXPECT_THAT(outputOf(tool, {}), Optional(std::string()));
}

TEST_F(ChildProcessTest, WhatOtherHoldersOfTheOutputPrintLaterIsReadToo) {
    EXPECT_THAT(outputOf(script("echo early; (sleep 0.2; echo late) &"), {}),
                Optional(std::string("early\nlate\n")));
}

TEST_F(ChildProcessTest, AChildThatSomebodyElseReapedIsNotWaitedForAgain) {
    const fs::path tool = script("echo answer");
    int waits = 0;
    SystemCallHooks hooks;
    hooks.waitpid = [&] { return ++waits == 1 ? std::optional(failWith(ECHILD)) : std::nullopt; };
    {
        const WithSystemCallHooks installed(hooks);
        EXPECT_THAT(outputOf(tool, {}), Optional(std::string("answer\n")));
    }
    EXPECT_EQ(waits, 1);
    EXPECT_GT(::waitpid(-1, nullptr, 0), 0);  // the child that nobody has reaped after all
}

TEST_F(ChildProcessTest, NoPipeNoLaunch) {
    const fs::path marker = directory() / "ran";
    const fs::path tool = script("touch " + marker.string());
    EXPECT_EQ(inChild([&] {
                  while (::dup(0) >= 0) {  // until every descriptor is used up
                  }
                  return outputOf(tool, {}) ? "launched" : "not launched";
              }),
              "not launched");
    EXPECT_FALSE(fs::exists(marker));
}

}  // namespace

}  // namespace orvane::test
