#include "process/private_root.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace orvane::test {

namespace fs = std::filesystem;

namespace {

/// Where a build that counts coverage wants its counters written.
#ifdef ORVANE_COUNTERS
const fs::path counters = ORVANE_COUNTERS;
#else
const fs::path counters;
#endif

bool bind(const fs::path& from, const fs::path& to) {
    return ::mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

/// Links as the machine has them ("/lib" to "usr/lib"), directories to mount on.
void mirrorTopLevel(const fs::path& root) {
    for (const char* name : {"bin", "sbin", "lib", "lib32", "lib64", "libx32"}) {
        const fs::path original = fs::path("/") / name;
        if (fs::is_symlink(original)) {
            fs::create_symlink(fs::read_symlink(original), root / name);
        } else if (fs::is_directory(original)) {
            fs::create_directory(root / name);
        }
    }
    for (const auto& entry : fs::directory_iterator("/usr")) {
        fs::create_directories(root / "usr" / entry.path().filename());
    }
    for (const char* name : {"proc", "dev", "tmp"}) {
        fs::create_directory(root / name);
    }
    fs::create_directories(root / counters.relative_path());
}

/// In the child, with a mount namespace of its own. All but /usr/sbin, which is the test's.
bool enter(const fs::path& root) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return false;
    }
    bool mounted = bind("/proc", root / "proc") && bind("/dev", root / "dev");
    for (const auto& entry : fs::directory_iterator("/usr")) {
        const auto name = entry.path().filename();
        mounted = mounted && (name == "sbin" || bind(entry.path(), root / "usr" / name));
    }
    if (!counters.empty()) {
        mounted = mounted && bind(counters, root / counters.relative_path());
    }
    for (const char* name : {"bin", "lib", "lib32", "lib64", "libx32"}) {
        const fs::path original = fs::path("/") / name;
        if (fs::is_directory(original) && !fs::is_symlink(original)) {
            mounted = mounted && bind(original, root / name);
        }
    }
    return mounted && ::chroot(root.c_str()) == 0 && ::chdir("/") == 0;
}

}  // namespace

PrivateRoot::PrivateRoot() {
    fs::permissions(path(), fs::perms(0755));
    mirrorTopLevel(path());
    const std::string user = std::to_string(::geteuid());
    writeFile(path() / "etc/passwd", "agent:x:" + user + ":" + user + "::/home/agent:/bin/sh\n");
    writeFile(path() / "etc/nsswitch.conf", "passwd: files\nhosts: files\n");
    writeFile(path() / "etc/hosts", "127.0.0.1 localhost\n");
    fs::create_directories(home());
    fs::create_directories(path() / "etc/ssl/certs");
}

std::string PrivateRoot::obstacle() {
    if (::geteuid() != 0) {
        return "a root directory of its own takes root";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(::unshare(CLONE_NEWNS) == 0 &&
                        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                    ? 0
                    : 1);
    }
    int status = 0;
    (void)::waitpid(child, &status, 0);
    return status == 0 ? "" : "mount namespaces are not permitted here";
}

DaemonSetup PrivateRoot::daemon(const fs::path& program) const {
    fs::copy_file(program, path() / program.filename(), fs::copy_options::overwrite_existing);
    return {fs::path("/") / program.filename(),
            {{"HOME", "/wrong"}, {"PATH", "/usr/bin:/bin"}},
            path() / "stderr",
            [root = path()] { return enter(root); }};
}

}  // namespace orvane::test
