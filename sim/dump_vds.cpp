#include "dump_vds.hpp"

#include "files.hpp"
#include "state_files.hpp"
#include "storage_state.hpp"

#include <cstdio>

void dump_vds_requests(const std::string& requests_dir)
{
    auto log = read_file(requests_dir + "/" + state::vds_diag_log);
    if (!log)
        return;
    unsigned number = 0;
    for (const auto& line : state::content_lines(*log))
        std::printf("vds request %u: %s\n", ++number, line.c_str());
}
