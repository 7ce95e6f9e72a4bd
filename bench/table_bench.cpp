// Loading a label table: the cost per line of reading, tokenising and
// checking. Goal: a table of ten thousand lines loads in well under 50 ms.
#include <cstdio>
#include <string>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "table/busid.h"
#include "table/hba_addr_conf.h"

namespace {

std::string make_table(int lines)
{
    char tmpl[] = "/tmp/slotag-bench-XXXXXX";
    int fd = mkstemp(tmpl);
    FILE *f = fdopen(fd, "w");
    for (int i = 0; i < lines; i++) {
        if (i % 10 == 0)
            fprintf(f, "# rack %d\n\n", i / 10);
        fprintf(f, "label%d,/dev/sd%c 0000:%02x:%02x.%x #slot %d\n", i, 'a' + i % 26,
                (i >> 8) & 0xff, (i >> 3) & 0x1f, i & 7, i);
    }
    fclose(f);
    return tmpl;
}

void BM_LoadTable(benchmark::State &state)
{
    std::string path = make_table(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        LineReaderStatus status = 0;
        if (load_hba_addr_conf(path.c_str(), 1000, &status) != 0)
            state.SkipWithError("load failed");
        benchmark::DoNotOptimize(hba_addr_table.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    unlink(path.c_str());
}
BENCHMARK(BM_LoadTable)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_ParseBusId(benchmark::State &state)
{
    uint16_t d;
    uint8_t b, dev, f;
    for (auto _ : state)
        benchmark::DoNotOptimize(parse_busid("0000:af:1f.7", 13, &d, &b, &dev, &f));
}
BENCHMARK(BM_ParseBusId);

} // namespace
