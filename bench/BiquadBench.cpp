// The biquad cascade kernels: cost per sample per section ("ns_per_sample_section", in seconds with
// an SI prefix) for each form, mono and as a joint two-channel pair, and an automated EQ band for
// scale.
#include "eq/BiquadFilter.h"
#include "eq/EQFilter.h"
#include "wave/Environment.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

constexpr int32_t kBlock = 512;

// A cascade of identical resonant sections with constant coefficients.
class ConstantCascade : public BiquadFilter {
public:
    ConstantCascade(wave::Environment* environment, DigitalForm form, int32_t count)
        : BiquadFilter(environment) {
        AnalogBiquadPrototype section;
        section.setCoefficients({1.0, 0.3, 1.0, 1.0, 0.1, 1.0});
        const double k = std::tan(3.14159265358979 * 1000.0 / 48000.0);
        sections.fill(section.toDigital(k, form));
        numSections = count;
        setForm(form);
    }

    void updateCoefficients(int32_t, int32_t numSamples) override {
        addSegment(numSamples, numSections, 1.0f, sections.data());
    }

private:
    Sections sections{};
    int32_t numSections;
};

std::vector<float> signal() {
    std::vector<float> samples(kBlock);
    for (int32_t i = 0; i < kBlock; ++i)
        samples[static_cast<size_t>(i)] = static_cast<float>(std::sin(0.01 * i));
    return samples;
}

// Arguments: form (0 direct, 1 state-variable), sections, channels (1 mono, 2 joint).
void BM_BiquadCascade(benchmark::State& state) {
    const auto form = static_cast<DigitalForm>(state.range(0));
    const auto sections = static_cast<int32_t>(state.range(1));
    const bool joint = state.range(2) == 2;
    wave::Environment environment(kBlock, 0);
    environment.setSampleRate(48000.0f);
    ConstantCascade filter(&environment, form, sections), partner(&environment, form, sections);
    if (joint)
        filter.linkWith(partner, BiquadFilter::kJoint);
    auto left = signal(), right = signal();
    for (auto _ : state) {
        if (joint)
            filter.processBlock(left.data(), left.data(), right.data(), right.data(), kBlock);
        else
            filter.processBlock(left.data(), left.data(), kBlock);
        benchmark::DoNotOptimize(left.data());
        benchmark::DoNotOptimize(right.data());
    }
    bench_support::reportPerUnit(state, "ns_per_sample_section",
                                 static_cast<double>(kBlock) * sections * (joint ? 2 : 1));
}
BENCHMARK(BM_BiquadCascade)->ArgsProduct({{0, 1}, {1, 4, 8}, {1, 2}});

// A Bell band whose frequency and gain move every sample: redesigns on the grids plus gain ramps between
// brackets. Argument: 1 for a dynamic band (state-variable form), 0 for the direct form.
void BM_EQFilterAutomated(benchmark::State& state) {
    wave::Environment environment(kBlock, 0);
    environment.setSampleRate(48000.0f);
    EQFilter filter(&environment);
    filter.dynamic.setValue(state.range(0) == 1);
    std::vector<float> frequencies(kBlock), gains(kBlock);
    for (int32_t i = 0; i < kBlock; ++i) {
        frequencies[static_cast<size_t>(i)] = 8.0f + 4.0f * static_cast<float>(i) / kBlock;
        gains[static_cast<size_t>(i)] = -12.0f + 24.0f * static_cast<float>(i) / kBlock;
    }
    auto samples = signal();
    for (auto _ : state) {
        filter.setParameterBlocks(frequencies.data(), gains.data(), nullptr);
        filter.processBlock(samples.data(), samples.data(), kBlock);
        benchmark::DoNotOptimize(samples.data());
    }
    bench_support::reportPerUnit(state, "ns_per_sample_section",
                                 static_cast<double>(kBlock) * filter.getNumberOfSections());
}
BENCHMARK(BM_EQFilterAutomated)->Arg(0)->Arg(1);

} // namespace
