#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>
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

// How evenly work is spread over the calls of a period (e.g. the largest convolution level's):
// "average_call" and "worst_call" in seconds and "worst_over_average". Each call position within
// the period is timed over many periods and its median kept, so that a preemption by another
// process does not pass for a spike of ours; the largest median is the worst call.
template <class Call>
void reportCallSpread(benchmark::State& state, int32_t callsPerPeriod, Call&& call) {
    using Clock = std::chrono::steady_clock;
    constexpr int32_t kPeriods = 41;
    std::vector<std::vector<double>> seconds(static_cast<size_t>(callsPerPeriod));
    for (int32_t period = 0; period < kPeriods; ++period) {
        for (auto& times : seconds) {
            const auto begin = Clock::now();
            call();
            times.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
        }
    }
    double total = 0.0;
    double worst = 0.0;
    for (std::vector<double>& times : seconds) {
        total += std::accumulate(times.begin(), times.end(), 0.0);
        std::nth_element(times.begin(), times.begin() + kPeriods / 2, times.end());
        worst = std::max(worst, times[kPeriods / 2]);
    }
    const double average = total / (static_cast<double>(kPeriods) * callsPerPeriod);
    state.counters["average_call"] = average;
    state.counters["worst_call"] = worst;
    state.counters["worst_over_average"] = worst / average;
}

} // namespace bench_support
