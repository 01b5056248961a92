#include "daemon/arguments.h"
#include "daemon/process_entry.h"

#include <cstdio>

int main(int count, char** arguments) {
    const auto answer = orvane::answerTo({arguments, static_cast<std::size_t>(count)});
    if (answer) {
        (void)std::fputs(answer->c_str(), stdout);
        return 0;
    }
    orvane::runProcess();
}
