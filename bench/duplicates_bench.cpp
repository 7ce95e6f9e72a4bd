// Marking repeated busIDs before registration. Goal: the cost grows with
// the number of labels, not its square: ten thousand labels are marked in
// a few milliseconds (each busID is parsed once).
#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "hotplug/busid_tokens.h"

namespace {

// A table of n entries in which every fourth busID repeats an earlier one.
TokenList make_table(int n)
{
    TokenList table;
    TokenCollector c;
    c.list = &table;
    for (int i = 0; i < n; i++) {
        int id = i % 4 == 3 ? i / 2 : i;
        char label[32], busid[32];
        snprintf(label, sizeof label, "hba%d,/dev/sdx", i);
        snprintf(busid, sizeof busid, "%04x:%02x:%02x.%x", id >> 16, (id >> 8) & 0xff,
                 (id >> 3) & 0x1f, id & 7);
        token_list_append(&c, label, static_cast<uint32_t>(std::string(label).size() + 1),
                          static_cast<uint32_t>(i + 1), 1, TOKEN_WORD);
        token_list_append(&c, busid, static_cast<uint32_t>(std::string(busid).size() + 1),
                          static_cast<uint32_t>(i + 1), 20, TOKEN_WORD);
        token_list_append(&c, "\n", 2, static_cast<uint32_t>(i + 1), 33, TOKEN_EOL);
    }
    return table;
}

void BM_MarkDuplicates(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        TokenList table = make_table(static_cast<int>(state.range(0)));
        state.ResumeTiming();
        std::vector<BusIdWord> words;
        if (mark_duplicate_busids(table, words) != 0)
            state.SkipWithError("marking failed");
        benchmark::DoNotOptimize(table.size());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_MarkDuplicates)->Range(1000, 16000)->Unit(benchmark::kMillisecond)->Complexity();

} // namespace
