// The volume manager's major numbers. /proc/devices lists the character
// devices under a "Character devices:" line and the block devices under a
// "Block devices:" line, one "MAJOR NAME" line each.
#include "resolve/vds_major.h"

#include <cstdlib>

#include "table/token_list.h"

VdsMajorTable vds_major_table;

int read_vds_majors(const char *path, LineReaderStatus *status)
{
    TokenList tokens;
    TokenCollector collector;
    collector.list = &tokens;
    collector.file_name = path;
    // The kernel answers at once: no time-out.
    LineReaderCallbacks callbacks = {token_list_init, token_list_append, parse_proc_devices,
                                     &collector};
    return read_lines(path, -1, 0, &callbacks, status);
}

int parse_proc_devices(void *user)
{
    TokenList &tokens = *static_cast<TokenCollector *>(user)->list;
    int in_char = 0;
    int in_block = 0;
    uint32_t major = 0;
    for (const LineToken &t : tokens) {
        if (!t.is_word())
            continue;
        if (t.field == 1) {
            if (t.text == "Character") {
                in_char = 1;
                in_block = 0;
            } else if (t.text == "Block") {
                in_char = 0;
                in_block = 1;
            }
            // A header line gives 0, which no "vdsdev" line follows.
            major = static_cast<uint32_t>(strtoul(t.text.c_str(), nullptr, 0));
        } else if (t.field == 2 && t.text == "vdsdev") {
            add_major(in_char, in_block, major);
        }
    }
    tokens.clear();
    return 1;
}

void add_major(int is_char, int is_block, uint32_t major)
{
    // A real /proc/devices names the driver once or twice; beyond the slots
    // a further number is dropped rather than failing the whole add mode.
    VdsMajorTable &t = vds_major_table;
    if (is_char && t.char_count < VDS_MAJOR_SLOTS)
        t.char_majors[t.char_count++] = major;
    if (is_block && t.block_count < VDS_MAJOR_SLOTS)
        t.block_majors[t.block_count++] = major;
}

int is_vds_major(uint32_t major)
{
    // Either list counts, whatever the type of the device at hand.
    const VdsMajorTable &t = vds_major_table;
    for (uint32_t i = 0; i < t.char_count; i++)
        if (t.char_majors[i] == major)
            return 1;
    for (uint32_t i = 0; i < t.block_count; i++)
        if (t.block_majors[i] == major)
            return 1;
    return 0;
}

uint32_t device_major(uint64_t dev)
{
    return static_cast<uint32_t>(((dev >> 8) & 0xfff) | ((dev >> 32) & ~uint64_t{0xfff}));
}
