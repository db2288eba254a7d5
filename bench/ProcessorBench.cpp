// The whole equaliser: OndrelProcessor driven like a host drives it, 512-sample blocks at 48 kHz.
// "per_channel_sample" is the time per sample and channel; "realtime" is seconds of audio per
// second of CPU (the real-time factor).
#include "eq/OndrelProcessor.h"
#include "plugin/PluginParameter.h"
#include "plugin/eq/ParameterMappings.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int32_t kBlock = 512;
// The host block of the spread measurement: small blocks show uneven work first.
constexpr int32_t kSmallBlock = 64;
constexpr float kRate = 48000.0f;
constexpr int32_t kStereo = 1;
constexpr int32_t kLayout714 = 22;

struct Setup {
    int32_t layout = kStereo;
    ProcessingMode mode = ProcessingMode::ZeroLatency;
    ProcessingResolution resolution = ProcessingResolution::Medium;
    int32_t bands = 24;
    int32_t dynamicBands = 0;
    int32_t block = kBlock;
    // Of the dynamic bands, how many are spectral.
    int32_t spectralBands = 0;
    Character character = Character::Clean;
};

class Bench {
public:
    explicit Bench(const Setup& setup)
        : block(setup.block), processor(std::make_unique<OndrelProcessor>(setup.layout, setup.block, kRate)) {
        processor->setProcessing(true);
        set("Processing Mode", static_cast<float>(setup.mode));
        set("Processing Resolution", static_cast<float>(setup.resolution));
        set("Character", static_cast<float>(setup.character));
        for (int32_t b = 1; b <= setup.bands; ++b) {
            const std::string band = "Band " + std::to_string(b);
            // Bells spread over the spectrum, alternating boosts and cuts.
            set(band + " Frequency", std::log2(40.0f * std::pow(1.3f, static_cast<float>(b))));
            set(band + " Gain", b % 2 == 0 ? 4.0f : -4.0f);
            set(band + " Q", static_cast<float>(normalizedFromQ(1.5)));
            if (b <= setup.dynamicBands)
                set(band + " Dynamic Range", -6.0f);
            if (b <= setup.spectralBands)
                set(band + " Spectral Enabled", 1.0f);
            set(band + " Used", 1.0f);
        }
        const int32_t channels = processor->getNumChannels();
        input = bench_support::testSignal(static_cast<size_t>(block));
        output.assign(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(block)));
        for (int32_t c = 0; c < channels; ++c) {
            inputs.push_back(input.data());
            outputs.push_back(output[static_cast<size_t>(c)].data());
        }
        // Let the settings and any kernel build land before measuring.
        for (int i = 0; i < 200 || processor->isSwitchPending(); ++i) {
            run();
            if (i % 100 == 99)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        for (int i = 0; i < 2 * processor->getLatency() / block; ++i)
            run();
    }

    void run() {
        uint32_t flags = 0;
        processor->process(inputs.data(), nullptr, outputs.data(), processor->getNumChannels(), block, flags);
    }
    int32_t channels() const { return processor->getNumChannels(); }
    int32_t blockSize() const { return block; }

private:
    void set(const std::string& name, float value) {
        for (int32_t i = 0; i < processor->getNumParameters(); ++i)
            if (processor->getParameter(i)->getName() == name)
                processor->setParameter(i, value, true);
    }

    int32_t block;
    std::unique_ptr<OndrelProcessor> processor;
    std::vector<float> input;
    std::vector<std::vector<float>> output;
    std::vector<const float*> inputs;
    std::vector<float*> outputs;
};

void measure(benchmark::State& state, const Setup& setup) {
    Bench bench(setup);
    for (auto _ : state)
        bench.run();
    bench_support::reportPerUnit(state, "per_channel_sample",
                                 static_cast<double>(bench.blockSize()) * bench.channels());
    state.counters["realtime"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * bench.blockSize() / kRate, benchmark::Counter::kIsRate);
    if (setup.block == kSmallBlock)
        bench_support::reportCallSpread(state, 8192 / kSmallBlock, [&bench] { bench.run(); });
}

// Argument: processing mode.
void BM_Processor24Bells(benchmark::State& state) {
    measure(state, {kStereo, static_cast<ProcessingMode>(state.range(0))});
}

// Argument: resolution.
void BM_ProcessorLinearPhase(benchmark::State& state) {
    measure(state, {kStereo, ProcessingMode::LinearPhase, static_cast<ProcessingResolution>(state.range(0))});
}

// 8 dynamic Bells among 24, argument: processing mode.
void BM_Processor8DynamicBands(benchmark::State& state) {
    measure(state,
            {kStereo, static_cast<ProcessingMode>(state.range(0)), ProcessingResolution::Medium, 24, 8});
}

// Linear Phase at Maximum with 64-sample host blocks: how evenly the work spreads over the calls.
void BM_ProcessorLinearPhaseMaximumSpread(benchmark::State& state) {
    measure(state, {kStereo, ProcessingMode::LinearPhase, ProcessingResolution::Maximum, 24, 0, kSmallBlock});
}

// 24 Bells in Zero Latency, one of them spectral; argument: resolution. The audio thread's share
// (the worker's is in BM_SpectralBandWorker).
void BM_ProcessorSpectralBand(benchmark::State& state) {
    measure(state, {kStereo, ProcessingMode::ZeroLatency, static_cast<ProcessingResolution>(state.range(0)),
                    24, 1, kBlock, 1});
}

// 24 Bells with Subtle (argument 1) or Warm (2), in Zero Latency and in Linear Phase (argument + 2):
// against BM_Processor24Bells, the cost of the Character stage.
void BM_ProcessorCharacter(benchmark::State& state) {
    const auto character = static_cast<Character>(state.range(0) % 2 == 1 ? 1 : 2);
    const auto mode = state.range(0) > 2 ? ProcessingMode::LinearPhase : ProcessingMode::ZeroLatency;
    measure(state, {kStereo, mode, ProcessingResolution::Medium, 24, 0, kBlock, 0, character});
}

void BM_Processor714(benchmark::State& state) {
    measure(state, {kLayout714, static_cast<ProcessingMode>(state.range(0))});
}

BENCHMARK(BM_Processor24Bells)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ProcessorLinearPhase)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Processor8DynamicBands)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ProcessorLinearPhaseMaximumSpread)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ProcessorSpectralBand)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ProcessorCharacter)->DenseRange(1, 4)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Processor714)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

} // namespace
