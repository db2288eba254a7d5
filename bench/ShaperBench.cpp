// Per-sample costs of the saturation shapers, each fast four-lane form beside the generic
// per-sample form of the same curve, and of the drive-dependent clipper with both converter
// styles. Every benchmark reports "per_sample" (seconds per base-rate sample).
#include "wave/FunctionTableClipper.h"
#include "wave/Input.h"
#include "wave/WaveShaper.h"
#include "wave/sr/ConverterStyle.h"
#include "wave/sr/IIRConverterStyle.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

using bench_support::reportPerSample;
using bench_support::testSignal;

constexpr int32_t kBlockSize = 256;

struct ShaperCase {
    const char* name;
    int32_t type;
    bool linearLevel;
    float p, b;
};

constexpr ShaperCase kShapers[] = {
    {"ArcTan", WaveShaper::kArcTan, false, 1.0f, 1.0f},
    {"DivAbs", WaveShaper::kDivAbs, false, 1.0f, 1.0f},
    {"Sine", WaveShaper::kSine, false, 1.0f, 1.0f},
    {"PolynomeOrder2", WaveShaper::kPolynomeOrder2, false, 1.0f, 1.0f},
    {"PolynomeOrder3", WaveShaper::kPolynomeOrder3, false, 1.0f, 1.0f},
    {"Tube", WaveShaper::kTube, false, 1.0f, 1.0f},
    {"Rectify", WaveShaper::kRectify, false, 1.0f, 1.0f},
    {"ArcTanB", WaveShaper::kArcTan, false, 1.0f, 2.0f},
    {"DivAbsB", WaveShaper::kDivAbs, false, 1.0f, 2.0f},
    {"ArcTanPB", WaveShaper::kArcTan, false, 2.0f, 2.0f},
    {"DivAbsPB", WaveShaper::kDivAbs, false, 2.0f, 2.0f},
    {"PolynomeOrder3PB", WaveShaper::kPolynomeOrder3, false, 2.0f, 2.0f},
    {"TubePB", WaveShaper::kTube, false, 2.0f, 2.0f},
    {"TanHyperbolicLL", WaveShaper::kTanHyperbolic, true, 1.0f, 1.0f},
};

void runShaper(benchmark::State& state, const WaveShaper& shaper) {
    const std::vector<float> signal = testSignal(kBlockSize + 4);
    std::vector<float> level(kBlockSize + 4, 0.3f), out(kBlockSize + 4);
    for (auto _ : state) {
        shaper.process(signal.data(), level.data(), out.data(), kBlockSize);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    reportPerSample(state, kBlockSize);
}

void fastShaper(benchmark::State& state) {
    const ShaperCase& c = kShapers[state.range(0)];
    state.SetLabel(c.name);
    runShaper(state, *WaveShaper::create(c.type, c.linearLevel, c.p, c.b));
}

void genericShaper(benchmark::State& state) {
    const ShaperCase& c = kShapers[state.range(0)];
    state.SetLabel(c.name);
    runShaper(state, WaveShaper(c.b, c.p, c.type));
}

void eachShaper(benchmark::internal::Benchmark* benchmark) {
    for (int64_t i = 0; i < static_cast<int64_t>(std::size(kShapers)); ++i)
        benchmark->Arg(i);
}
BENCHMARK(fastShaper)->Apply(eachShaper);
BENCHMARK(genericShaper)->Apply(eachShaper);

// One interpolator and one decimator of a style, per base-rate sample.
void converterRoundTrip(benchmark::State& state, sr::ConverterStyleBase& style) {
    const std::vector<float> signal = testSignal(kBlockSize);
    std::vector<float> high(static_cast<size_t>(kBlockSize * style.getFactor())), out(kBlockSize);
    const auto up = style.createInterpolator();
    const auto down = style.createDecimator();
    for (auto _ : state) {
        up->process(signal.data(), high.data(), kBlockSize);
        down->process(high.data(), out.data(), kBlockSize);
        benchmark::DoNotOptimize(out.data());
    }
    reportPerSample(state, kBlockSize);
}

struct Rig {
    explicit Rig(float rate) : environment(kBlockSize, 0) { environment.setSampleRate(rate); }
    wave::Environment environment;
};

void firRoundTrip(benchmark::State& state) {
    Rig rig(static_cast<float>(state.range(0)));
    sr::ConverterStyle style(rig.environment);
    converterRoundTrip(state, style);
}
BENCHMARK(firRoundTrip)->Arg(44100)->Arg(48000)->Arg(96000);

void iirRoundTrip(benchmark::State& state) {
    Rig rig(static_cast<float>(state.range(0)));
    sr::IIRConverterStyle style(rig.environment);
    converterRoundTrip(state, style);
}
BENCHMARK(iirRoundTrip)->Arg(44100)->Arg(48000)->Arg(96000);

// The whole clipper at 48 kHz: the Subtle-like linear-level style (0) or the Warm-like tube style
// (1), with the FIR (0) or IIR (1) converter style.
void clipper(benchmark::State& state) {
    static const FunctionTableClipper::Style subtle(-12.0f, 20.0f, -17.0f, 0.0f, WaveShaper::kTanHyperbolic,
                                                    true, 1.0f, 1.0f);
    static const FunctionTableClipper::Style warm(-30.0f, 6.0f, -8.0f, 0.55f, WaveShaper::kTube, false, 1.0f,
                                                  1.0f);
    Rig rig(48000.0f);
    sr::ConverterStyle linearPhase(rig.environment);
    sr::IIRConverterStyle minimumPhase(rig.environment);
    sr::ConverterStyleBase* converter =
        state.range(1) == 0 ? static_cast<sr::ConverterStyleBase*>(&linearPhase) : &minimumPhase;
    FunctionTableClipper clip(&rig.environment, state.range(0) == 0 ? &subtle : &warm, converter);
    clip.getDrive().jumpTo(0.3f);
    const std::vector<float> signal = testSignal(kBlockSize);
    wave::Input input(&rig.environment);
    clip.setInput(&input);
    for (auto _ : state) {
        rig.environment.nextGeneration();
        input.setData(signal.data(), kBlockSize);
        benchmark::DoNotOptimize(clip.fetch(kBlockSize)->getData());
        rig.environment.advance(kBlockSize, false);
    }
    reportPerSample(state, kBlockSize);
}
BENCHMARK(clipper)->Args({0, 0})->Args({0, 1})->Args({1, 0})->Args({1, 1});

} // namespace
