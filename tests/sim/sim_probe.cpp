// Does what the tool does to the simulated hardware, one step a command, so
// the simulator's tests can check each answer:
//   sim_probe shpc CONFIG CAP INDEX...  select each INDEX, then print each data register
//   sim_probe list DIR               the entries of DIR in readdir order
//   sim_probe driver [--high]        hand-built records to both requests of /dev/slotag
//   sim_probe open FILE              open FILE for reading: "opened" or why not
//   sim_probe lock FILE [SINCE MIN]  whether FILE is locked; then wait for it and say
//                                    whether it came free MIN seconds or more after SINCE

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

struct Select {
    const char* config;
    unsigned cap;
    unsigned index;
};

// The select write goes through a write-only open and the data read through
// a read-only one, each a separate open. All selects are made before the
// first read, so each function must remember its own selection.
int shpc(const std::vector<Select>& selects)
{
    for (const auto& s : selects) {
        int fd = ::open(s.config, O_WRONLY);
        if (fd < 0) {
            std::perror("open for writing");
            return 1;
        }
        std::uint8_t select = static_cast<std::uint8_t>(s.index);
        ssize_t n = ::pwrite(fd, &select, 1, s.cap + 2);
        ::close(fd);
        if (n != 1) {
            std::perror("pwrite");
            return 1;
        }
    }
    for (const auto& s : selects) {
        int fd = ::open(s.config, O_RDONLY);
        if (fd < 0) {
            std::perror("open for reading");
            return 1;
        }
        std::uint8_t data[4];
        ssize_t n = ::pread(fd, data, 4, s.cap + 4);
        ::close(fd);
        if (n != 4) {
            std::perror("pread");
            return 1;
        }
        std::printf("0x%08x\n", static_cast<unsigned>(data[0] | data[1] << 8 | data[2] << 16 |
                                                      static_cast<unsigned>(data[3]) << 24));
    }
    return 0;
}

int list(const char* path)
{
    DIR* dir = ::opendir(path);
    if (!dir) {
        std::perror(path);
        return 1;
    }
    while (const dirent* entry = ::readdir(dir))
        std::printf("%s\n", entry->d_name);
    ::closedir(dir);
    return 0;
}

// SINCE is a time of day in seconds (date +%s.%N), taken before the run.
int lock(const char* path, const char* since, const char* min_seconds)
{
    int fd = ::open(path, O_RDWR);
    if (fd < 0) {
        std::perror(path);
        return 1;
    }
    if (::lockf(fd, F_TLOCK, 0) == 0) {
        std::printf("free\n");
        ::close(fd);
        return 0;
    }
    std::printf("held %d\n", errno);
    if (since) {
        ::lockf(fd, F_LOCK, 0);
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        double waited = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 -
                        std::strtod(since, nullptr);
        double min = std::strtod(min_seconds, nullptr);
        if (waited >= min && waited < min + 10)
            std::printf("released\n");
        else
            std::printf("released after %.1f s\n", waited);
    }
    ::close(fd);
    return 0;
}

void put16(std::uint8_t* p, unsigned v)
{
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
void put32(std::uint8_t* p, std::uint32_t v)
{
    put16(p, v);
    put16(p + 2, v >> 16);
}
std::int32_t get32(const std::uint8_t* p)
{
    return static_cast<std::int32_t>(p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24);
}

void hba_info(std::uint8_t* p, unsigned bus, unsigned device, unsigned function)
{
    put32(p, 0xBEEF2BAD);
    put32(p + 4, function); // alt_pm
    put16(p + 8, 0);
    p[10] = static_cast<std::uint8_t>(bus);
    p[11] = static_cast<std::uint8_t>(device);
    p[12] = static_cast<std::uint8_t>(function);
    p[13] = 2;    // revision
    p[14] = 0x40; // pm_cap
    p[15] = 0x80; // header_type
    std::snprintf(reinterpret_cast<char*>(p + 16), 20, "0000:%02x:%02x.%x", bus, device, function);
}

// Both requests with hand-built records in memory below 4 GiB.
int driver(bool high)
{
    int flags = MAP_PRIVATE | MAP_ANONYMOUS;
    void* at = nullptr;
    if (sizeof(void*) == 8 && !high) {
#if defined(MAP_32BIT)
        flags |= MAP_32BIT;
#else
        flags |= MAP_FIXED_NOREPLACE;  // no flag asks for low memory here: name an address
        at = reinterpret_cast<void*>(std::uintptr_t{0x40000000});
#endif
    }
    auto* mem = static_cast<std::uint8_t*>(::mmap(at, 4096, PROT_READ | PROT_WRITE, flags, -1, 0));
    if (mem == MAP_FAILED) {
        std::perror("mmap");
        return 1;
    }
    std::memset(mem, 0, 4096);
    // outside list: two adapters
    std::uint8_t* outside = mem;
    put32(outside, 2);
    hba_info(outside + 8, 5, 0, 0);
    hba_info(outside + 8 + 36, 5, 0, 1);
    // one controller with one adapter in its list
    std::uint8_t* list = mem + 512;
    put32(list, 1);
    hba_info(list + 8, 7, 1, 0);
    std::uint8_t* table = mem + 1024;
    put32(table, 1);
    put32(table + 4, 20 + 76 + 8 + 36);
    put32(table + 8, 1);
    std::uint8_t* shpc = table + 20;
    put32(shpc, 0xFEEDBEEF);
    put16(shpc + 8, 0);
    shpc[10] = 0;
    shpc[11] = 0x1e;
    shpc[12] = 0;
    shpc[13] = 9;
    shpc[15] = 1;
    std::snprintf(reinterpret_cast<char*>(shpc + 16), 20, "0000:00:1e.0");
    put16(shpc + 36, 0x0604);
    shpc[38] = 7;
    shpc[39] = 0x48;
    shpc[40] = 1;
    shpc[41] = 4;
    put32(shpc + 44, 0x04000000);
    put32(shpc + 52, 0x00010104);
    put32(shpc + 56, 0x01000004);
    put32(shpc + 68, 1);
    put32(shpc + 72, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(list)));

    int fd = ::open("/dev/slotag", O_RDWR);
    if (fd < 0) {
        std::printf("open /dev/slotag: %s\n", std::strerror(errno));
        return 1;
    }
    unsigned long requests[] = {0xC004FE00UL, 0xC004FE01UL};
    std::uint8_t* args[] = {outside, table};
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        int rc = ::ioctl(fd, requests[i], args[i]);
        int err = errno;
        if (i == 0)
            std::printf("SET_HBA rc=%d errno=%s err_num=%d\n", rc, rc ? std::strerror(err) : "-",
                        get32(outside + 4));
        else
            std::printf("SET_SHPC rc=%d errno=%s err_num=%d device_err_num=%d\n", rc,
                        rc ? std::strerror(err) : "-", get32(table + 12), get32(table + 16));
    }
    ::close(fd);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string command = argc > 1 ? argv[1] : "";
    if (command == "shpc" && argc >= 5 && (argc - 2) % 3 == 0) {
        std::vector<Select> selects;
        for (int i = 2; i < argc; i += 3)
            selects.push_back({argv[i], static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 0)),
                               static_cast<unsigned>(std::strtoul(argv[i + 2], nullptr, 0))});
        return shpc(selects);
    }
    if (command == "open" && argc == 3) {
        int fd = ::open(argv[2], O_RDONLY);
        std::printf("%s\n", fd >= 0 ? "opened" : std::strerror(errno));
        return 0;
    }
    if (command == "lock" && (argc == 3 || argc == 5))
        return lock(argv[2], argc == 5 ? argv[3] : nullptr, argc == 5 ? argv[4] : nullptr);
    if (command == "list" && argc == 3)
        return list(argv[2]);
    if (command == "driver" && (argc == 2 || (argc == 3 && std::string(argv[2]) == "--high")))
        return driver(argc == 3);
    std::fprintf(stderr, "usage: sim_probe shpc CONFIG CAP INDEX... | list DIR | driver [--high] | open FILE | lock FILE [SINCE MIN]\n");
    return 2;
}
