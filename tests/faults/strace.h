// strace(1) attached to a running daemon: it reports the file and process calls of the thread that
// makes them all, and makes chosen ones fail.
//
// Only the main thread is traced: the other one makes no file or process call (a test says so).
// Counting starts when strace attaches, so the start of the process plays no part.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace orvane::test {

/// What a call does, whatever the system's name for it is.
enum class CallKind {
    stat,
    open,
    read,
    write,
    sync,
    close,
    rename,
    unlink,
    makeDirectory,
    changeMode,
    process,  ///< pipes, descriptors' flags, child processes
    other,
};

struct Call {
    std::string name;        ///< as the system spells it
    std::size_t occurrence;  ///< among the calls of that name, from 1
    CallKind kind;
    std::string path;     ///< below the root; "pipe" for a pipe, empty when about no file
    std::string newPath;  ///< of a renaming
    bool byDescriptor;    ///< the path is that of an open descriptor
    bool failed;          ///< the call itself, with no help from us or with it
    bool spoilt;          ///< by us
    bool inChild;         ///< made by a child process before it became another program

    /// Whether it is the same call in another run.
    friend bool operator==(const Call& a, const Call& b) {
        return a.name == b.name && a.occurrence == b.occurrence && a.path == b.path &&
               a.newPath == b.newPath && a.inChild == b.inChild;
    }
};

/// Human-readable: "rename 3 (.orvane/policy.json.tmp)".
std::string describe(const Call& call);

/// Whose calls are of interest.
enum class Traced { mainThread, everything };

class Strace {
  public:
    /// Attaches to `pid`, whose main thread is blocked on a futex, and returns when it is traced.
    /// `injections` are strace's: "fsync:error=EIO:when=3".
    Strace(pid_t pid, std::filesystem::path root, const std::vector<std::string>& injections,
           Traced traced = Traced::mainThread);
    Strace(const Strace&) = delete;
    Strace& operator=(const Strace&) = delete;
    ~Strace();

    /// Leaves the daemon to itself, if it is still there.
    void detach();

    /// The file and process calls so far.
    [[nodiscard]] std::vector<Call> calls() const;

    /// Why nothing can be traced here; empty when it can.
    static std::string obstacle();

  private:
    enum class Maker { mainThread, otherThread, child };
    void append(std::vector<Call>& calls, const std::vector<std::string>& lines, Maker maker) const;

    pid_t daemon_;
    std::vector<std::string> threads_;  ///< of the daemon, their ids
    pid_t strace_ = -1;
    std::filesystem::path root_;
    std::filesystem::path output_;
};

}  // namespace orvane::test
