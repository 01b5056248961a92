#include "platform/machine/accounts.h"
#include "status/run.h"

int main(int count, char** words) {
    return orvane::status::run({words + 1, words + count}, orvane::ownUser());
}
