#pragma once

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench_support {

// Reports the time per unit of work (a sample, a bin, a sample of one section) as a counter.
inline void reportPerUnit(benchmark::State& state, const char* name, double unitsPerIteration) {
    state.counters[name] = benchmark::Counter(static_cast<double>(state.iterations()) * unitsPerIteration,
                                              benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

inline void reportPerSample(benchmark::State& state, double samplesPerIteration) {
    reportPerUnit(state, "per_sample", samplesPerIteration);
}

// A deterministic, broadband, non-periodic test signal in [-1, 1].
template <class T = float>
std::vector<T> testSignal(std::size_t length) {
    std::vector<T> signal(length);
    for (std::size_t i = 0; i < length; ++i)
        signal[i] =
            static_cast<T>(std::sin(0.001 * static_cast<double>(static_cast<int64_t>(i * i % 100003))));
    return signal;
}

} // namespace bench_support
