// The convolver with 64-sample host blocks: "per_sample" is the time per processed sample. With a
// 131072-tap kernel it also reports how evenly the work is spread: "average_call" and
// "worst_call" (seconds per 64-sample call) and "worst_over_average". The worst call is taken at
// its typical cost: each call's position within the largest level's period is timed over many
// periods, its median kept, and the largest median reported, so that a preemption by another
// process on the machine does not pass for a spike of ours.
#include "eq/Convolver.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <vector>

namespace {

constexpr int32_t kBlock = 64;

std::unique_ptr<Convolver> convolverWithKernel(wave::Environment& environment, int32_t length,
                                               int32_t firstPartition) {
    auto convolver = std::make_unique<Convolver>(&environment, length, firstPartition, 1024);
    const std::vector<double> taps = bench_support::testSignal<double>(static_cast<size_t>(length));
    Convolver::Kernel* kernel = convolver->acquireFreeKernel();
    kernel->setImpulseResponse(taps.data(), length);
    convolver->publishKernel(kernel);
    return convolver;
}

void reportSpread(benchmark::State& state, Convolver& convolver, const std::vector<float>& input,
                  std::vector<float>& output) {
    using Clock = std::chrono::steady_clock;
    const int32_t callsPerPeriod = convolver.getLayout().getLargestPartition() / kBlock;
    constexpr int32_t kPeriods = 41;
    std::vector<std::vector<double>> seconds(static_cast<size_t>(callsPerPeriod));
    for (int32_t period = 0; period < kPeriods; ++period) {
        for (int32_t call = 0; call < callsPerPeriod; ++call) {
            const auto begin = Clock::now();
            convolver.process(input.data(), output.data(), kBlock);
            seconds[static_cast<size_t>(call)].push_back(
                std::chrono::duration<double>(Clock::now() - begin).count());
        }
    }
    double total = 0.0, worst = 0.0;
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

void convolve(benchmark::State& state) {
    const auto length = static_cast<int32_t>(state.range(0));
    const auto firstPartition = static_cast<int32_t>(state.range(1));
    wave::Environment environment(kBlock, 0);
    const std::unique_ptr<Convolver> convolver = convolverWithKernel(environment, length, firstPartition);
    const std::vector<float> input = bench_support::testSignal(kBlock);
    std::vector<float> output(kBlock);
    // Past the start-up, where levels are still filling.
    for (int32_t i = 0; i < 2 * length / kBlock; ++i)
        convolver->process(input.data(), output.data(), kBlock);
    for (auto _ : state) {
        convolver->process(input.data(), output.data(), kBlock);
        benchmark::DoNotOptimize(output.data());
    }
    bench_support::reportPerSample(state, kBlock);
    if (length >= 131072)
        reportSpread(state, *convolver, input, output);
}

} // namespace

BENCHMARK(convolve)
    ->Args({512, 64})
    ->Args({4096, 1024})
    ->Args({8192, 1024})
    ->Args({16384, 1024})
    ->Args({32768, 1024})
    ->Args({131072, 1024});
