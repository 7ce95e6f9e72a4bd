#pragma once
// `slotag-sim run ROOT [--user NAME|UID] [--hold-lock SECONDS]
//  [--preload LIBRARY[:LIBRARY...]] -- PROGRAM [ARGS...]`

#include <optional>
#include <string>
#include <vector>

struct RunOptions {
    std::string root;
    std::optional<std::string> user;
    std::optional<unsigned> hold_lock_seconds;
    std::optional<std::string> preload;
    std::vector<std::string> command;
};

// Parses the words after "run"; throws std::invalid_argument on misuse.
RunOptions parse_run_options(const std::vector<std::string>& args);

// Runs the command in the simulated server and returns its exit status
// (128 + signal number when a signal ended it).
int run_in_root(const RunOptions& options);
