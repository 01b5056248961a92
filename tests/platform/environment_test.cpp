#include "platform/process/environment.h"

#include "platform/process/child_process.h"
#include "platform/system_calls.h"
#include "support/in_child.h"
#include "support/test_files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <string>

namespace orvane::test {

namespace {

TEST(EnvironmentTest, TheProcessIdIsThisProcesss) {
    EXPECT_EQ(processId(), ::getpid());
    EXPECT_EQ(inChild([] { return std::to_string(processId() - ::getpid()); }), "0");
}

/// The width that a child sees on a terminal of its own with so many columns.
std::string widthOnTerminal(unsigned short columns) {
    return inChild([=]() -> std::string {
        const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0) {
            return "no terminal";
        }
        const int end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
        winsize size{};
        size.ws_col = columns;
        if (::ioctl(end, TIOCSWINSZ, &size) != 0 || ::dup2(end, STDOUT_FILENO) < 0) {
            return "no size";
        }
        return std::to_string(terminalWidth());
    });
}

TEST(EnvironmentTest, OnlyATerminalHasAWidth) {
    EXPECT_EQ(widthOnTerminal(60), "60");
    EXPECT_EQ(widthOnTerminal(0), "80");
    EXPECT_EQ(inChild([]() -> std::string {
                  const int file = ::open("/dev/null", O_WRONLY);
                  return ::dup2(file, STDOUT_FILENO) < 0 ? "" : std::to_string(terminalWidth());
              }),
              "0");
}

TEST(EnvironmentTest, AVariableHasItsValue) {
    ::setenv("ORVANE_TEST_VARIABLE", " some value ", 1);
    EXPECT_EQ(environmentValue("ORVANE_TEST_VARIABLE"), " some value ");
}

TEST(EnvironmentTest, AnUnsetAndAnEmptyVariableLookTheSame) {
    ::unsetenv("ORVANE_TEST_VARIABLE");
    EXPECT_EQ(environmentValue("ORVANE_TEST_VARIABLE"), "");
    ::setenv("ORVANE_TEST_VARIABLE", "", 1);
    EXPECT_EQ(environmentValue("ORVANE_TEST_VARIABLE"), "");
}

/// What a write to a pipe without a reader does.
std::string writeToBrokenPipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return "no pipe";
    }
    ::close(ends[0]);
    return ::write(ends[1], "x", 1) < 0 && errno == EPIPE ? "error" : "written";
}

TEST(EnvironmentTest, AWriteToABrokenPipeBecomesAnError) {
    EXPECT_EQ(inChild([] {
                  (void)std::signal(SIGPIPE, SIG_DFL);
                  ignoreWriteSignals();
                  return writeToBrokenPipe();
              }),
              "error");
}

TEST(EnvironmentTest, AWriteBeyondTheLimitForFilesBecomesAnError) {
    const TempDirectory directory;
    EXPECT_EQ(inChild([&] {
                  (void)std::signal(SIGXFSZ, SIG_DFL);
                  const rlimit none{0, 0};
                  ::setrlimit(RLIMIT_FSIZE, &none);
                  ignoreWriteSignals();
                  const int file =
                      ::open((directory.path() / "f").c_str(), O_WRONLY | O_CREAT, 0600);
                  return ::write(file, "x", 1) < 0 && errno == EFBIG ? "error" : "written";
              }),
              "error");
}

TEST(EnvironmentTest, AVariableThatIsUnsetIsGoneForChildrenToo) {
    ::setenv("ORVANE_TEST_VARIABLE", "value", 1);
    unsetVariable("ORVANE_TEST_VARIABLE");
    EXPECT_EQ(environmentValue("ORVANE_TEST_VARIABLE"), "");
    EXPECT_EQ(outputOf("/bin/sh", {"-c", "echo ${ORVANE_TEST_VARIABLE-unset}"}), "unset\n");
}

bool isNullDevice(int descriptor) {
    struct stat status {};
    struct stat nullDevice {};
    return ::fstat(descriptor, &status) == 0 && ::stat("/dev/null", &nullDevice) == 0 &&
           S_ISCHR(status.st_mode) && status.st_rdev == nullDevice.st_rdev;
}

/// Closes `descriptors`, calls the function under test and returns, for 0 to 3, which are open: "n"
/// to /dev/null, "o" to something else, "-" not at all.
std::string afterClosing(std::initializer_list<int> descriptors) {
    // The child's way to answer must not have one of the numbers in question.
    return inChild([descriptors] {
        for (const int descriptor : descriptors) {
            ::close(descriptor);
        }
        ::close(3);
        occupyStandardDescriptors();
        std::string open;
        for (int descriptor = 0; descriptor <= 3; ++descriptor) {
            open += isNullDevice(descriptor) ? 'n' : ::fcntl(descriptor, F_GETFD) >= 0 ? 'o' : '-';
        }
        return open;
    });
}

class StandardDescriptorsTest : public ::testing::Test {
  protected:
    StandardDescriptorsTest() {
        // Something other than /dev/null on all three, and on 3 a guard, so that nothing of the
        // test's own gets that number.
        const int file =
            ::open((directory_.path() / "f").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        for (int descriptor = 0; descriptor <= 3; ++descriptor) {
            originals_.at(static_cast<std::size_t>(descriptor)) = ::fcntl(descriptor, F_DUPFD, 10);
            ::dup2(file, descriptor);
        }
        file_ = file;
    }
    StandardDescriptorsTest(const StandardDescriptorsTest&) = delete;
    StandardDescriptorsTest& operator=(const StandardDescriptorsTest&) = delete;
    ~StandardDescriptorsTest() override {
        for (int descriptor = 0; descriptor <= 3; ++descriptor) {
            const int original = originals_.at(static_cast<std::size_t>(descriptor));
            if (original >= 0) {
                ::dup2(original, descriptor);
                ::close(original);
            } else {
                ::close(descriptor);
            }
        }
        ::close(file_);
    }

  private:
    TempDirectory directory_;
    std::array<int, 4> originals_{};
    int file_ = -1;
};

TEST_F(StandardDescriptorsTest, AllThereIsLeftAlone) {
    EXPECT_EQ(afterClosing({}), "ooo-");
}

TEST_F(StandardDescriptorsTest, WhatIsMissingLeadsToTheNullDevice) {
    EXPECT_EQ(afterClosing({0}), "noo-");
    EXPECT_EQ(afterClosing({1}), "ono-");
    EXPECT_EQ(afterClosing({2}), "oon-");
    EXPECT_EQ(afterClosing({0, 2}), "non-");
    EXPECT_EQ(afterClosing({0, 1, 2}), "nnn-");
}

TEST_F(StandardDescriptorsTest, WithoutTheNullDeviceItIsTriedOnce) {
    int attempts = 0;
    SystemCallHooks hooks;
    hooks.open = [&](const char*) {
        ++attempts;
        return std::optional(failWith(EMFILE));
    };
    {
        const WithSystemCallHooks installed(hooks);
        occupyStandardDescriptors();
    }
    EXPECT_EQ(attempts, 1);
}

TEST_F(StandardDescriptorsTest, TheNullDeviceCanBeReadAndWritten) {
    EXPECT_EQ(inChild([] {
                  ::close(0);
                  ::close(1);
                  occupyStandardDescriptors();
                  char byte = 0;
                  return std::to_string(::read(0, &byte, 1)) + std::to_string(::write(1, "x", 1));
              }),
              "01");
}

TEST_F(StandardDescriptorsTest, TheNullDeviceIsInheritedByChildren) {
    EXPECT_EQ(inChild([] {
                  ::close(0);
                  ::close(2);
                  occupyStandardDescriptors();
                  return std::to_string(::fcntl(0, F_GETFD)) + std::to_string(::fcntl(2, F_GETFD));
              }),
              "00");
}

}  // namespace

}  // namespace orvane::test
