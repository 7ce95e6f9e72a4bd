// Finding the labelled adapters of a registration. Goal: a look-up grows at
// most with the logarithm of the snapshot or of the number of controllers:
// ten thousand look-ups take a millisecond or less on a snapshot of four
// thousand functions, or among 64 controllers (a walk of the snapshot took
// tens of milliseconds).
#include <vector>

#include <benchmark/benchmark.h>

#include "hotplug/pci_access.h"
#include "hotplug/shpc_owner.h"

namespace {

void BM_FindFunction(benchmark::State &state)
{
    PciSnap snap;
    const int n = static_cast<int>(state.range(0));
    for (int i = 0; i < n; i++) {
        snap.functions.emplace_front();
        PciFunction &f = snap.functions.front();
        f.snap = &snap;
        f.bus = static_cast<uint8_t>(1 + i / 64);
        f.device = static_cast<uint8_t>(1 + (i % 64) / 8);
        f.function = static_cast<uint8_t>(i % 8);
    }
    for (auto _ : state)
        for (int i = 0; i < 10000; i++) {
            int k = (i * 7) % n;
            benchmark::DoNotOptimize(pci_find_function(snap, 0, static_cast<uint8_t>(1 + k / 64),
                                                       static_cast<uint8_t>(1 + (k % 64) / 8),
                                                       static_cast<uint8_t>(k % 8)));
        }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_FindFunction)->Range(256, 4096)->Unit(benchmark::kMicrosecond)->Complexity();

void BM_FindController(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    std::vector<ShpcInfo> controllers(static_cast<size_t>(count));
    for (int i = 0; i < count; i++) {
        controllers[i].magic = SHPC_MAGIC;
        controllers[i].secondary_bus = static_cast<uint8_t>(1 + i);
        controllers[i].slots_available_1 = 8u << 24;  // 133 MHz PCI-X, 8 slots
        controllers[i].slot_config = 1u << 8;         // from device 1
        controllers[i].sec_bus_config = 4;
    }
    for (auto _ : state) {
        ShpcOwnerFinder finder(controllers.data(), static_cast<uint32_t>(count));
        for (int i = 0; i < 10000; i++) {
            ShpcInfo *owner = nullptr;
            finder.find(0, static_cast<uint8_t>(1 + (i * 7) % count), static_cast<uint8_t>(1 + i % 8),
                        &owner);
            benchmark::DoNotOptimize(owner);
        }
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_FindController)->Range(4, 64)->Unit(benchmark::kMicrosecond)->Complexity();

} // namespace
