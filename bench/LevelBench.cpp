// Per-sample costs of the level and envelope blocks. Every benchmark reports "per_sample" (seconds
// per processed sample); the library log10 runs beside the fast conversion as the yardstick.
#include "wave/Capacitor.h"
#include "wave/Detector.h"
#include "wave/FastLevel.h"
#include "wave/FloatParameter.h"
#include "wave/Input.h"
#include "wave/LevelMeter.h"
#include "wave/NoiseFilter.h"
#include "wave/PeakHold.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

using bench_support::reportPerSample;
using bench_support::testSignal;

constexpr int32_t kBlockSize = 256;

// Pulls one block through a graph object per iteration, fed with the same test block.
void runBlocks(benchmark::State& state, wave::Environment& environment, wave::FilterBase& block) {
    const std::vector<float> signal = testSignal(kBlockSize);
    wave::Input input(&environment);
    block.setInput(&input);
    for (auto _ : state) {
        environment.nextGeneration();
        input.setData(signal.data(), kBlockSize);
        benchmark::DoNotOptimize(block.fetch(kBlockSize)->getData());
        environment.advance(kBlockSize, false);
    }
    reportPerSample(state, kBlockSize);
}

struct Rig {
    Rig() : environment(kBlockSize, 48000) { environment.setSampleRate(48000.0f); }
    wave::Environment environment;
};

void capacitor(benchmark::State& state) {
    Rig rig;
    wave::Capacitor smoother(&rig.environment, 0.005f, 0.08f);
    runBlocks(state, rig.environment, smoother);
}
BENCHMARK(capacitor);

void peakHold(benchmark::State& state) {
    Rig rig;
    wave::PeakHold hold(&rig.environment, static_cast<float>(state.range(0)), 100.0f);
    runBlocks(state, rig.environment, hold);
}
BENCHMARK(peakHold)->Arg(1)->Arg(50);

void noiseFilter(benchmark::State& state) {
    Rig rig;
    wave::NoiseFilter noise(&rig.environment);
    FloatParameterSource level(&rig.environment, 0.5f), shape(&rig.environment, 0.25f);
    noise.setControls(&level, &shape);
    runBlocks(state, rig.environment, noise);
}
BENCHMARK(noiseFilter);

void levelMeter(benchmark::State& state) {
    Rig rig;
    wave::LevelMeter meter(&rig.environment);
    runBlocks(state, rig.environment, meter);
}
BENCHMARK(levelMeter);

void detector(benchmark::State& state) {
    Rig rig;
    wave::Detector compressor(&rig.environment);
    compressor.thresholdDb.setValue(-12.0f);
    runBlocks(state, rig.environment, compressor);
}
BENCHMARK(detector);

void amplitudeToDbFast(benchmark::State& state) {
    std::vector<float> data = testSignal(kBlockSize);
    for (auto _ : state) {
        wave::amplitudeToDb(data.data(), kBlockSize);
        wave::dbToAmplitude(data.data(), kBlockSize);
        benchmark::DoNotOptimize(data.data());
    }
    reportPerSample(state, kBlockSize);
}
BENCHMARK(amplitudeToDbFast);

void amplitudeToDbLibrary(benchmark::State& state) {
    std::vector<float> data = testSignal(kBlockSize);
    for (auto _ : state) {
        for (float& x : data)
            x = 20.0f * std::log10(std::fabs(x) + 1e-10f);
        for (float& x : data)
            x = std::exp(x * 0.115129255f);
        benchmark::DoNotOptimize(data.data());
    }
    reportPerSample(state, kBlockSize);
}
BENCHMARK(amplitudeToDbLibrary);

} // namespace
