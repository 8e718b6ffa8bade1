#pragma once

#include "cli/arguments.h"

// The verbs of brindle-convert. Each returns the exit status: 0 done, 1 the check found
// errors, 2 bad usage, unreadable input or output that cannot be written (after one line
// on stderr).
namespace Commands {

constexpr int Done = 0;
constexpr int CheckFailed = 1;
constexpr int Failed = 2;

int check(const Arguments& args);
int exportDataset(const Arguments& args);
int merge(const Arguments& args);

// "brindle-convert: " + message, on stderr.
int fail(const QString& message);

} // namespace Commands
