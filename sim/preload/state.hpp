#pragma once
// The simulator's state directory as the library sees it (the path comes
// from the environment that `slotag-sim run` sets).

#include <optional>
#include <string>
#include <vector>

namespace preload {

// ROOT/state, or empty when the program was not started by slotag-sim.
const std::string& state_dir();
// A file of the state directory, or nullopt.
std::optional<std::string> read_state(const std::string& name);
// Writes a file of the state directory; false on failure.
bool write_state(const std::string& name, const std::string& content);
// Names in a directory of the state directory ("." and ".." excluded).
std::vector<std::string> list_state(const std::string& name);

} // namespace preload
