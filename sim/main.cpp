// slotag-sim: builds a simulated server and runs programs inside it.

#include "build_root.hpp"
#include "dump.hpp"
#include "run.hpp"

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr const char* usage =
    "usage: slotag-sim build ROOT TOPOLOGY\n"
    "       slotag-sim run ROOT [--user NAME|UID] [--hold-lock SECONDS] [--preload LIBRARY[:LIBRARY...]]\n"
    "                  -- PROGRAM [ARGS...]\n"
    "       slotag-sim dump ROOT [--clear]\n";

// Status of the simulator's own failures, apart from what a program returns.
constexpr int failure_status = 125;

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::fputs(usage, stderr);
        return failure_status;
    }
    const std::string command = args.front();
    args.erase(args.begin());
    try {
        if (command == "build" && args.size() == 2) {
            build_root(args[0], args[1]);
            return 0;
        }
        if (command == "run")
            return run_in_root(parse_run_options(args));
        if (command == "dump" && (args.size() == 1 || (args.size() == 2 && args[1] == "--clear")))
            return dump_requests(args[0], args.size() == 2) ? 0 : 1;
    } catch (const std::invalid_argument& e) {
        std::fprintf(stderr, "slotag-sim: %s\n%s", e.what(), usage);
        return failure_status;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "slotag-sim: %s\n", e.what());
        return failure_status;
    }
    std::fputs(usage, stderr);
    return failure_status;
}
