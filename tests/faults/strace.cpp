#include "faults/strace.h"

#include "process/daemon_process.h"
#include "support/test_files.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>

extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace orvane::test {

namespace fs = std::filesystem;

namespace {

pid_t start(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, "strace", nullptr, nullptr, arguments.data(), environ) != 0) {
        return -1;
    }
    return pid;
}

/// Memory is not a file, and waiting is not a call that can go wrong.
const std::set<std::string>& namesLeftOut() {
    static const std::set<std::string> names{"futex", "mmap",     "munmap",     "restart_syscall",
                                             "poll",  "exit",     "epoll_wait", "exit_group",
                                             "kill",  "eventfd2", "ppoll"};
    return names;
}

CallKind kindOf(const std::string& name) {
    static const std::map<std::string, CallKind> kinds{
        {"stat", CallKind::stat},           {"fstat", CallKind::stat},
        {"lstat", CallKind::stat},          {"newfstatat", CallKind::stat},
        {"statx", CallKind::stat},          {"open", CallKind::open},
        {"openat", CallKind::open},         {"read", CallKind::read},
        {"pread64", CallKind::read},        {"write", CallKind::write},
        {"pwrite64", CallKind::write},      {"fsync", CallKind::sync},
        {"fdatasync", CallKind::sync},      {"close", CallKind::close},
        {"rename", CallKind::rename},       {"renameat", CallKind::rename},
        {"renameat2", CallKind::rename},    {"unlink", CallKind::unlink},
        {"unlinkat", CallKind::unlink},     {"rmdir", CallKind::unlink},
        {"mkdir", CallKind::makeDirectory}, {"mkdirat", CallKind::makeDirectory},
        {"chmod", CallKind::changeMode},    {"fchmod", CallKind::changeMode},
        {"fchmodat", CallKind::changeMode}, {"fchmodat2", CallKind::changeMode},
        {"pipe", CallKind::process},        {"pipe2", CallKind::process},
        {"fcntl", CallKind::process},       {"clone", CallKind::process},
        {"clone3", CallKind::process},      {"vfork", CallKind::process},
        {"wait4", CallKind::process},       {"dup2", CallKind::process},
        {"dup3", CallKind::process},        {"close_range", CallKind::process},
        {"execve", CallKind::process}};
    const auto found = kinds.find(name);
    return found == kinds.end() ? CallKind::other : found->second;
}

/// What is between the first `open` and the next `close` after `from`.
std::optional<std::string> between(const std::string& text, char open, char close,
                                   std::size_t& from) {
    const auto start = text.find(open, from);
    const auto end = start == std::string::npos ? start : text.find(close, start + 1);
    if (end == std::string::npos) {
        return std::nullopt;
    }
    from = end + 1;
    return text.substr(start + 1, end - start - 1);
}

/// One line of strace's output, without the process id.
class Line {
  public:
    Line(std::string text, const fs::path& root) : text_(std::move(text)), root_(root.string()) {}

    [[nodiscard]] std::string name() const {
        const auto end = text_.find('(');
        const bool isCall = end != std::string::npos && end > 0 && text_.front() != '<' &&
                            text_.front() != '-' && text_.front() != '+';
        return isCall ? text_.substr(0, end) : "";
    }

    [[nodiscard]] Call call(std::size_t occurrence) const {
        Call call{name(), occurrence, kindOf(name()), "", "", false, false, false, false};
        std::size_t at = call.name.size() + 1;
        const char first = text_[at];
        const bool beginsWithDescriptor = first >= '0' && first <= '9';
        std::size_t behindPath = at;
        if (beginsWithDescriptor) {
            call.byDescriptor = true;
            call.path = relative(between(text_, '<', '>', behindPath).value_or(""));
        } else if (call.kind != CallKind::process || call.name == "execve") {
            call.path = relative(between(text_, '"', '"', behindPath).value_or(""));
        }
        if (call.kind == CallKind::rename) {
            call.newPath = relative(between(text_, '"', '"', behindPath).value_or(""));
        }
        call.failed = text_.find(") = -1 ") != std::string::npos;
        call.spoilt = text_.find("(INJECTED)") != std::string::npos;
        return call;
    }

  private:
    /// Where the token of a scratch file's name begins, which is another one in each process.
    static std::size_t tokenIn(const std::string& path) {
        constexpr std::size_t length = sizeof "0123456789abcdef.tmp" - 1;
        if (path.size() < length || !path.ends_with(".tmp")) {
            return std::string::npos;
        }
        const std::size_t token = path.size() - length;
        const auto end = path.find_first_not_of("0123456789abcdef", token);
        return path.substr(end) == ".tmp" ? token : std::string::npos;
    }

    [[nodiscard]] std::string relative(const std::string& path) const {
        if (path.starts_with("pipe:")) {
            return "pipe";
        }
        if (path.starts_with("/proc/self/fd/")) {
            return "/proc/self/fd";
        }
        if (const auto token = tokenIn(path); token != std::string::npos) {
            return relative(path.substr(0, token) + "TOKEN.tmp");
        }
        return path.starts_with(root_ + "/") ? path.substr(root_.size() + 1) : path;
    }

    std::string text_;
    std::string root_;
};

/// The lines of each process or thread; there is no id in them when just one is traced.
std::map<pid_t, std::vector<std::string>> linesById(const std::string& output, pid_t only) {
    std::map<pid_t, std::vector<std::string>> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        const auto text = line.find_first_not_of("0123456789 ");
        if (text != std::string::npos && text > 0) {
            lines[std::stoi(line)].push_back(line.substr(text));
        } else {
            lines[only].push_back(line);
        }
    }
    return lines;
}

}  // namespace

std::string describe(const Call& call) {
    return (call.inChild ? "child's " : "") + call.name + " " + std::to_string(call.occurrence) +
           " (" + call.path + ")";
}

Strace::Strace(pid_t pid, fs::path root, const std::vector<std::string>& injections, Traced traced)
    : daemon_(pid),
      threads_(namesIn("/proc/" + std::to_string(pid) + "/task")),
      root_(std::move(root)),
      output_(root_ / "strace") {
    fs::remove(output_);
    std::vector<std::string> words{"strace",
                                   "-qq",
                                   "-y",
                                   "-s",
                                   "0",
                                   "-o",
                                   output_.string(),
                                   "-e",
                                   "signal=none",
                                   "-e",
                                   "trace=%file,%desc,%process,close_range,futex"};
    if (traced == Traced::everything) {
        words.emplace_back("-f");
    }
    for (const std::string& injection : injections) {
        words.insert(words.end(), {"-e", "inject=" + injection});
    }
    words.insert(words.end(), {"-p", std::to_string(pid)});
    strace_ = start(words);
    // Its first line is of the call that the main thread is blocked in.
    const std::string blocked =
        traced == Traced::everything ? std::to_string(pid) + " " : std::string();
    const auto isTraced = [&] {
        const std::string output = fs::exists(output_) ? "\n" + readFile(output_) : "";
        const auto line = output.find("\n" + blocked);
        return line != std::string::npos && output.find("(", line) != std::string::npos;
    };
    if (strace_ < 0 || !waitUntil(isTraced)) {
        throw std::runtime_error("strace does not attach");
    }
}

Strace::~Strace() {
    detach();
}

void Strace::detach() {
    if (strace_ > 0) {
        (void)::kill(strace_, SIGTERM);
        if (!waitUntil([this] { return ::waitpid(strace_, nullptr, WNOHANG) == strace_; })) {
            (void)::kill(strace_, SIGKILL);
            (void)::waitpid(strace_, nullptr, 0);
        }
        strace_ = -1;
    }
}

std::vector<Call> Strace::calls() const {
    std::vector<Call> calls;
    auto lines = linesById(readFile(output_), daemon_);
    append(calls, lines[daemon_], Maker::mainThread);
    lines.erase(daemon_);
    for (const auto& [id, own] : lines) {
        const bool isThread =
            std::find(threads_.begin(), threads_.end(), std::to_string(id)) != threads_.end();
        append(calls, own, isThread ? Maker::otherThread : Maker::child);
    }
    return calls;
}

void Strace::append(std::vector<Call>& calls, const std::vector<std::string>& lines,
                    Maker maker) const {
    std::map<std::string, std::size_t> occurrences;
    for (const std::string& text : lines) {
        const Line line(text, root_);
        const std::string name = line.name();
        if (name.empty() || namesLeftOut().contains(name)) {
            continue;
        }
        Call call = line.call(++occurrences[name]);
        if (call.path.starts_with("socket:") || call.path.starts_with("anon_inode:")) {
            continue;
        }
        if (maker == Maker::otherThread) {
            throw std::runtime_error("another thread makes a file call: " + describe(call));
        }
        call.inChild = maker == Maker::child;
        calls.push_back(call);
        if (call.inChild && name == "execve") {
            return;  // from here on it is another program
        }
    }
}

std::string Strace::obstacle() {
    const pid_t pid = start({"strace", "-qq", "-o", "/dev/null", "true"});
    int status = -1;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid) {
        return "strace is not installed";
    }
    return status == 0 ? "" : "processes cannot be traced here";
}

}  // namespace orvane::test
