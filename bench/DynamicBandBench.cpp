// One EQ band of one channel in the graph: a static Bell (EQFilter) against a dynamic Bell (band-pass
// detection filter, BandCompander and the two crossfaded filters of DynamicEQFilter), manual and
// auto threshold. Compare "per_sample" of the dynamic runs with the static one for the ratio.
#include "eq/BandCompander.h"
#include "eq/DynamicEQFilter.h"
#include "eq/EQFilter.h"
#include "wave/Environment.h"
#include "wave/Input.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

constexpr int32_t kBlock = 512;
constexpr int32_t kSignalBlocks = 94; // about a second at 48 kHz

// A Bell at 1 kHz, Q 1, static gain +3 dB; a dynamic one cuts up to 9 dB from there.
struct DynamicBand {
    explicit DynamicBand(wave::Environment* environment, wave::Producer* input, bool autoThreshold)
        : detector(environment), compander(environment), band(environment) {
        detector.shape.setValue(FilterShape::BandPass);
        detector.setFrequency(std::log2(1000.0f));
        detector.setInput(input);
        compander.setInput(&detector);
        compander.getThreshold().getParameter().jumpTo(-20.0f);
        compander.getLimit().getParameter().jumpTo(9.0f);
        compander.setRangeSign(-1.0f);
        compander.autoThreshold.setValue(autoThreshold);
        band.frequency.setValue(std::log2(1000.0f));
        band.baseGain.setValue(3.0f);
        band.range.setValue(-9.0f);
        band.dynamicsEnabled.setValue(true);
        band.setInput(input);
        band.setGainSource(&compander);
    }

    EQFilter detector;
    BandCompander compander;
    DynamicEQFilter band;
};

// Argument: 0 static band, 1 dynamic band with a manual threshold, 2 dynamic band in auto mode.
void BM_DynamicBand(benchmark::State& state) {
    wave::Environment environment(kBlock, 0);
    environment.setSampleRate(48000.0f);
    wave::Input input(&environment);
    EQFilter staticBand(&environment);
    staticBand.setFrequency(std::log2(1000.0f));
    staticBand.setGain(3.0f);
    staticBand.setInput(&input);
    DynamicBand dynamicBand(&environment, &input, state.range(0) == 2);
    wave::Producer* output =
        state.range(0) == 0 ? static_cast<wave::Producer*>(&staticBand) : &dynamicBand.band;

    const auto signal = bench_support::testSignal(static_cast<size_t>(kBlock) * kSignalBlocks);
    int32_t blockIndex = 0;
    for (auto _ : state) {
        environment.nextGeneration();
        input.setData(signal.data() + static_cast<ptrdiff_t>(blockIndex) * kBlock, kBlock);
        benchmark::DoNotOptimize(output->fetch(kBlock)->getData());
        environment.advance(kBlock, true);
        blockIndex = (blockIndex + 1) % kSignalBlocks;
    }
    bench_support::reportPerSample(state, kBlock);
}
BENCHMARK(BM_DynamicBand)->Arg(0)->Arg(1)->Arg(2);

} // namespace
