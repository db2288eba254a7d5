// The convolver with 64-sample host blocks: "per_sample" is the time per processed sample. With a
// 131072-tap kernel it also reports how evenly the work is spread: "average_call" and
// "worst_call" (seconds per 64-sample call) and "worst_over_average". The worst call is taken at
// its typical cost (see reportCallSpread).
#include "eq/Convolver.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

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
        bench_support::reportCallSpread(state, convolver->getLayout().getLargestPartition() / kBlock,
                                        [&] { convolver->process(input.data(), output.data(), kBlock); });
}

} // namespace

BENCHMARK(convolve)
    ->Args({512, 64})
    ->Args({4096, 1024})
    ->Args({8192, 1024})
    ->Args({16384, 1024})
    ->Args({32768, 1024})
    ->Args({131072, 1024});
