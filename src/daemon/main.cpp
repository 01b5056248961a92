#include "daemon/process_entry.h"

int main() {
    orvane::runProcess();
}
