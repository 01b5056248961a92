// What macOS's <spawn.h> has on top of the standard, for tests that run elsewhere.
#pragma once

#include_next <spawn.h>

#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions, int descriptor);
