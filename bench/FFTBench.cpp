// The real FFT against FFTW (r2c, FFTW_MEASURE plans) in both precisions. Time is ns per
// transform; ours also reports "vs_fftw", its time divided by FFTW's for the same size,
// measured in the same run so that the ratio survives a loaded machine better than the times.
#include "eq/FFTPlan.h"
#include "eq/FFTStepper.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

namespace {

// FFTW's plan, data arrays and execute call for one precision.
template <class T>
struct Fftw;

template <>
struct Fftw<float> {
    explicit Fftw(int32_t size)
        : in(fftwf_alloc_real(static_cast<size_t>(size))),
          out(fftwf_alloc_complex(static_cast<size_t>(size / 2 + 1))),
          plan(fftwf_plan_dft_r2c_1d(size, in, out, FFTW_MEASURE)) {}
    ~Fftw() {
        fftwf_destroy_plan(plan);
        fftwf_free(in);
        fftwf_free(out);
    }
    void execute() { fftwf_execute(plan); }
    float* in;
    fftwf_complex* out;
    fftwf_plan plan;
};

template <>
struct Fftw<double> {
    explicit Fftw(int32_t size)
        : in(fftw_alloc_real(static_cast<size_t>(size))),
          out(fftw_alloc_complex(static_cast<size_t>(size / 2 + 1))),
          plan(fftw_plan_dft_r2c_1d(size, in, out, FFTW_MEASURE)) {}
    ~Fftw() {
        fftw_destroy_plan(plan);
        fftw_free(in);
        fftw_free(out);
    }
    void execute() { fftw_execute(plan); }
    double* in;
    fftw_complex* out;
    fftw_plan plan;
};

// Seconds per call of a transform, timed over enough calls to fill about 10 ms.
template <class Transform>
double secondsPerCall(Transform&& transform) {
    using Clock = std::chrono::steady_clock;
    int64_t calls = 1;
    for (;;) {
        const auto begin = Clock::now();
        for (int64_t i = 0; i < calls; ++i)
            transform();
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        if (seconds > 0.01)
            return seconds / static_cast<double>(calls);
        calls *= 2;
    }
}

// Ours over FFTW, each timed five times in turn and taken at its best, so that load from elsewhere
// on the machine skews the ratio less.
template <class Ours, class Reference>
double bestRatio(Ours&& ours, Reference&& reference) {
    double bestOurs = std::numeric_limits<double>::max(), bestReference = bestOurs;
    for (int trial = 0; trial < 5; ++trial) {
        bestOurs = std::min(bestOurs, secondsPerCall(ours));
        bestReference = std::min(bestReference, secondsPerCall(reference));
    }
    return bestOurs / bestReference;
}

template <class T, FFTCode code>
void ourRealFft(benchmark::State& state) {
    const auto size = static_cast<int32_t>(state.range(0));
    const FFTPlan<T> plan(size);
    FFTStepper<T> stepper(plan);
    stepper.selectCode(code);
    const std::vector<T> input = bench_support::testSignal<T>(static_cast<size_t>(size));
    std::vector<T> spectrum(input.size());
    auto ours = [&] {
        stepper.forward(input.data(), spectrum.data());
        benchmark::DoNotOptimize(spectrum.data());
    };
    for (auto _ : state)
        ours();

    Fftw<T> reference(size); // planning overwrites the input array, so fill it afterwards
    std::copy(input.begin(), input.end(), reference.in);
    state.counters["vs_fftw"] = bestRatio(ours, [&] {
        reference.execute();
        benchmark::DoNotOptimize(reference.out);
    });
}

template <class T>
void fftwRealFft(benchmark::State& state) {
    const auto size = static_cast<int32_t>(state.range(0));
    Fftw<T> reference(size);
    const std::vector<T> input = bench_support::testSignal<T>(static_cast<size_t>(size));
    std::copy(input.begin(), input.end(), reference.in);
    for (auto _ : state) {
        reference.execute();
        benchmark::DoNotOptimize(reference.out);
    }
}

// Multiply-accumulate of packed spectra, the inner work of partitioned convolution: per bin.
template <class T>
void multiplySpectra(benchmark::State& state) {
    const auto size = static_cast<int32_t>(state.range(0));
    const std::vector<T> a = bench_support::testSignal<T>(static_cast<size_t>(size)),
                         b = bench_support::testSignal<T>(static_cast<size_t>(size + 7));
    std::vector<T> accumulator(a.size());
    for (auto _ : state) {
        FFTPlan<T>::multiplySpectra(a.data(), b.data(), accumulator.data(), size, true);
        benchmark::DoNotOptimize(accumulator.data());
    }
    bench_support::reportPerUnit(state, "per_bin", size / 2 + 1);
}

} // namespace

BENCHMARK(ourRealFft<float, FFTCode::kFastest>)->RangeMultiplier(2)->Range(512, 131072);
BENCHMARK(fftwRealFft<float>)->RangeMultiplier(2)->Range(512, 131072);
BENCHMARK(ourRealFft<double, FFTCode::kFastest>)->RangeMultiplier(2)->Range(512, 131072);
BENCHMARK(ourRealFft<double, FFTCode::kBaseline>)->RangeMultiplier(2)->Range(512, 131072);
BENCHMARK(fftwRealFft<double>)->RangeMultiplier(2)->Range(512, 131072);
BENCHMARK(multiplySpectra<float>)->Arg(2048)->Arg(16384);
BENCHMARK(multiplySpectra<double>)->Arg(2048)->Arg(16384);
