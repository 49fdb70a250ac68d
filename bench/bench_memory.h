#ifndef VELLUMENT_BENCH_MEMORY_H
#define VELLUMENT_BENCH_MEMORY_H

// Warm runs reuse the memory the last iteration freed; cold runs hand it back to the system
// first, as a program doing the work once would find it.

#include <benchmark/benchmark.h>

#include <malloc.h>

enum Memory { kWarm, kCold };

inline void releaseFreeMemory(benchmark::State& state, Memory memory)
{
    if (memory == kWarm)
        return;
    state.PauseTiming();
    malloc_trim(0);
    state.ResumeTiming();
}

#endif
