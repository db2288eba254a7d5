// What a spectral band costs the engine worker: per analysis hop, the spectra of both stereo
// channels, the analyzer's update and the two channels' Linear Phase kernels shaped by it. The
// audio thread only adds the kernel's convolution (see the processor benchmarks).
// "cpu_per_audio_second" is the worker time one second of 48 kHz audio costs.
#include "eq/BandRouting.h"
#include "eq/Convolver.h"
#include "eq/EngineSnapshot.h"
#include "eq/KernelDesigner.h"
#include "eq/SpectralEngine.h"
#include "wave/ChannelLayouts.h"
#include "wave/Environment.h"
#include "wave/SampleRing.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <vector>

namespace {

constexpr float kRate = 48000.0f;
constexpr int32_t kStereo = 1;

// Argument: resolution (Low, Medium, High).
void BM_SpectralBandWorker(benchmark::State& state) {
    EngineSnapshot snapshot;
    snapshot.resolution = static_cast<ProcessingResolution>(state.range(0));
    snapshot.sampleRate = kRate;
    BandSettings& band = snapshot.bands[0];
    band.used = true;
    band.frequency = std::log2(1000.0f);
    band.q = 0.3f;
    band.dynamicRange = -12.0f;
    band.spectralEnabled = true;
    snapshot.stages = assignStages(snapshot.bands, snapshot.mode, snapshot.resolution, {});
    snapshot.config = kernelConfigFor(snapshot.stages, snapshot.mode, snapshot.resolution, kRate);
    const auto flags = chl::layoutFlags(kStereo);
    snapshot.numChannels = static_cast<int32_t>(flags.size());
    std::copy(flags.begin(), flags.end(), snapshot.channelFlags.begin());

    const int32_t taps = snapshot.config.linearTaps;
    const int32_t hop = taps / 2;
    std::array<wave::SampleRing, 2> inputs;
    std::array<wave::SampleRing, 2> sideChains;
    for (auto* rings : {&inputs, &sideChains})
        for (wave::SampleRing& ring : *rings)
            ring.resize(4 * taps);
    SpectralEngine engine;
    engine.setInputs({&inputs[0], &inputs[1]}, {&sideChains[0], &sideChains[1]});

    wave::Environment environment(512, 0);
    environment.setSampleRate(kRate);
    Convolver convolver(&environment, taps, snapshot.config.linearFirstPartition, 0);
    Convolver::Kernel* kernel = convolver.acquireFreeKernel();
    KernelDesigner designer(KernelDesigner::Kind::LinearPhase, taps, kRate);
    const auto signal = bench_support::testSignal(static_cast<size_t>(hop) * 16);
    size_t offset = 0;
    for (auto _ : state) {
        for (wave::SampleRing& ring : inputs)
            ring.write(signal.data() + offset, hop);
        offset = (offset + static_cast<size_t>(hop)) % signal.size();
        engine.follow(snapshot);
        // Each channel's kernel: the analyzer moved, so both are designed anew.
        for (int32_t channel = 0; channel < 2; ++channel) {
            const KernelBand kernelBand{0,
                                        band.design(band.gain),
                                        band.gain,
                                        engine.analyzerFor(0),
                                        band.design(band.gain + band.dynamicRange),
                                        engine.versionOf(0) * 2 + static_cast<uint64_t>(channel)};
            benchmark::DoNotOptimize(designer.build({&kernelBand, 1}, *kernel));
        }
    }
    convolver.discardKernel(kernel);
    const double hopSeconds = hop / static_cast<double>(kRate);
    state.counters["cpu_per_audio_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * hopSeconds,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_SpectralBandWorker)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

} // namespace
