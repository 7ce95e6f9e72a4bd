// The label table through load and write-back. A table that loads is
// written through the real writer (temporary file, backups, rename); what
// it wrote must load again and be written identically (a fixed point), and
// apart from the blanks and tabs between words it must hold every byte of
// the accepted file: no word and no comment byte is lost.
#include <filesystem>
#include <string>

#include "fuzz/harness.h"
#include "table/hba_addr_conf.h"
#include "table/table_writer.h"

namespace {

// A private directory for the written table and its backups, removed when
// the fuzzer exits.
struct OutDir {
    std::string dir;
    OutDir()
    {
        // In memory when there is /dev/shm: the writer syncs every file.
        dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        dir += "/slotag-fuzz-table-XXXXXX";
        if (!mkdtemp(dir.data()))
            abort();
    }
    ~OutDir() { std::filesystem::remove_all(dir); }
};

std::string out_path()
{
    static OutDir out;
    static const std::string path = out.dir + "/hba_addr.conf";
    return path;
}

// The file without the blanks and tabs that separate words; a last line
// without its newline gets one, as the writer ends every line.
std::string without_blanks(const std::string &text)
{
    std::string out;
    for (char c : text)
        if (c != ' ' && c != '\t')
            out += c;
    if (!out.empty() && out.back() != '\n')
        out += '\n';
    return out;
}

// Load then write back; "" with ok false when the load refused the table.
std::string load_and_write(const char *path, bool &ok)
{
    LineReaderStatus status = 0;
    ok = load_hba_addr_conf(path, 0, &status) == 0;
    if (!ok)
        return "";
    const std::string out = out_path();
    FUZZ_CHECK(write_hba_addr_conf(out.c_str()) == 0, out);
    return slurp(out.c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static InputFile input;
    input.fill(data, size);
    const std::string text(reinterpret_cast<const char *>(data), size);

    bool accepted = false;
    const std::string first = load_and_write(input.path(), accepted);
    if (!accepted)
        return 0;

    bool again = false;
    const std::string second = load_and_write(out_path().c_str(), again);
    FUZZ_CHECK(again, "the written table does not load:\n" + first);
    FUZZ_CHECK(second == first, "write-back is not a fixed point:\n" + first + "--\n" + second);

    // A NUL ends a token as the reader delivers it, so only NUL-free input
    // keeps every byte.
    if (text.find('\0') == std::string::npos)
        FUZZ_CHECK(without_blanks(first) == without_blanks(text),
                   "bytes lost:\n" + text + "--\n" + first);
    return 0;
}
