// Per-sample costs of the audio graph's hot paths. Every benchmark reports "per_sample" (seconds
// per processed sample), so block sizes and chain lengths compare directly.
#include "wave/Delay.h"
#include "wave/FloatParameter.h"
#include "wave/Input.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

using bench_support::reportPerSample;
using bench_support::testSignal;

class Gain : public wave::Filter {
public:
    Gain(wave::Environment* environment, float gain) : wave::Filter(environment), gain(gain) {}

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t) override {
        float* out = block->getData();
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = input[i] * gain;
    }

private:
    float gain;
};

// A parameter that never settles: every block sets a new target a second away.
void smoothedRamp(benchmark::State& state) {
    const auto blockSize = static_cast<int32_t>(state.range(0));
    wave::Environment environment(blockSize, 0);
    environment.setSampleRate(48000.0f);
    FloatParameter parameter(&environment, 0.0f);
    float target = 1.0f;
    for (auto _ : state) {
        environment.nextGeneration();
        parameter.setValue(target, 1000.0f);
        target = 1.0f - target;
        benchmark::DoNotOptimize(parameter.getValueBlockAt(blockSize).getData());
        environment.advance(blockSize, false);
    }
    reportPerSample(state, blockSize);
}
BENCHMARK(smoothedRamp)->Arg(16)->Arg(64)->Arg(512);

// A steady parameter: the constant block is filled once and then only handed out.
void smoothedConstant(benchmark::State& state) {
    const auto blockSize = static_cast<int32_t>(state.range(0));
    wave::Environment environment(blockSize, 0);
    FloatParameter parameter(&environment, 0.5f);
    for (auto _ : state) {
        environment.nextGeneration();
        benchmark::DoNotOptimize(parameter.getValueBlockAt(blockSize).getData());
        environment.advance(blockSize, false);
    }
    reportPerSample(state, blockSize);
}
BENCHMARK(smoothedConstant)->Arg(16)->Arg(64)->Arg(512);

void delayIntegerRead(benchmark::State& state) {
    const auto blockSize = static_cast<int32_t>(state.range(0));
    wave::Environment environment(blockSize, 0);
    wave::Delay delay(&environment, 4800, 1234);
    const std::vector<float> input = testSignal(static_cast<size_t>(blockSize));
    std::vector<float> output(static_cast<size_t>(blockSize));
    for (auto _ : state) {
        delay.write(input.data(), blockSize);
        delay.read(delay.getDelay(), output.data(), blockSize);
        benchmark::DoNotOptimize(output.data());
    }
    reportPerSample(state, blockSize);
}
BENCHMARK(delayIntegerRead)->Arg(16)->Arg(64)->Arg(512);

void delayFractionalRead(benchmark::State& state) {
    const auto blockSize = static_cast<int32_t>(state.range(0));
    wave::Environment environment(blockSize, 0);
    wave::Delay delay(&environment, 4800);
    const std::vector<float> input = testSignal(static_cast<size_t>(blockSize));
    std::vector<float> delays(static_cast<size_t>(blockSize)), output(static_cast<size_t>(blockSize));
    for (size_t i = 0; i < delays.size(); ++i) // a slowly modulated delay, as in a chorus
        delays[i] = 1200.0f + 300.0f * std::sin(0.05f * static_cast<float>(i));
    for (auto _ : state) {
        delay.write(input.data(), blockSize);
        delay.readFractional(delays.data(), output.data(), blockSize);
        benchmark::DoNotOptimize(output.data());
    }
    reportPerSample(state, blockSize);
}
BENCHMARK(delayFractionalRead)->Arg(16)->Arg(64)->Arg(512);

// Pulls the end of a chain of gain filters fed by an input: the graph's overhead per stage.
void filterChainPull(benchmark::State& state) {
    constexpr int32_t kBlockSize = 64;
    const auto stages = static_cast<size_t>(state.range(0));
    wave::Environment environment(kBlockSize, 0);
    wave::Input input(&environment);
    std::vector<std::unique_ptr<Gain>> chain;
    wave::Producer* previous = &input;
    for (size_t stage = 0; stage < stages; ++stage) {
        chain.push_back(std::make_unique<Gain>(&environment, stage % 2 == 0 ? 0.5f : 2.0f));
        chain.back()->setInput(previous);
        previous = chain.back().get();
    }
    const std::vector<float> host = testSignal(kBlockSize);
    for (auto _ : state) {
        input.setData(host.data(), kBlockSize);
        environment.nextGeneration();
        benchmark::DoNotOptimize(previous->fetch(kBlockSize)->getData());
        environment.advance(kBlockSize, false);
    }
    reportPerSample(state, kBlockSize);
    state.counters["per_sample_and_stage"] = benchmark::Counter(
        static_cast<double>(state.iterations() * kBlockSize * static_cast<int64_t>(stages)),
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(filterChainPull)->Arg(1)->Arg(8)->Arg(32);

} // namespace
