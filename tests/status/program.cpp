#include "status/program.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace orvane::test {

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

std::string ProgramResult::lastLine() const {
    const auto end = output.find_last_not_of('\n');
    const auto start = output.rfind('\n', end);
    return output.substr(start + 1, end - start);
}

ProgramResult runProgram(const std::filesystem::path& program, std::vector<std::string> arguments,
                         std::vector<std::string> environment,
                         const std::function<bool()>& prepare) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    arguments.insert(arguments.begin(), program.string());
#ifdef ORVANE_EMULATOR
    arguments.insert(arguments.begin(), ORVANE_EMULATOR);  // the kernel cannot run it
#endif
    const std::vector<char*> words = pointersTo(arguments);
    const std::vector<char*> variables = pointersTo(environment);
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::dup2(ends[1], STDOUT_FILENO);
        (void)::close(ends[0]);
        (void)::close(ends[1]);
        if (prepare()) {
            ::execve(words.front(), words.data(), variables.data());
        }
        ::_exit(127);
    }
    (void)::close(ends[1]);
    ProgramResult result;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = ::read(ends[0], buffer.data(), buffer.size())) > 0;) {
        result.output.append(buffer.data(), static_cast<std::size_t>(count));
    }
    (void)::close(ends[0]);
    int status = 0;
    if (::waitpid(child, &status, 0) == child && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    }
    return result;
}

}  // namespace orvane::test
