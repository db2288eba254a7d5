#include "eq/FFTStepper.h"

#include "eq/FFTStages.h"
#include "eq/FFTVector.h"

#include <algorithm>
#include <cassert>
#include <limits>

void runBaselineFFTStage(const FFTStageCall<float>& call) {
    runFFTStageWith<float, FFTVector<float>>(call);
}

void runBaselineFFTStage(const FFTStageCall<double>& call) {
    runFFTStageWith<double, FFTVector<double>>(call);
}

namespace {

// Float already fills a four-lane SSE register; double gains from AVX's four lanes.
FFTStageFunction<float> fastestStageFunction(float) {
    return runBaselineFFTStage;
}

FFTStageFunction<double> fastestStageFunction(double) {
    if (__builtin_cpu_supports("avx2"))
        return runAvx2FFTStage;
    return runBaselineFFTStage;
}

} // namespace

template <class T>
FFTStepper<T>::FFTStepper(const FFTPlan<T>& plan) : plan(plan) {
    selectCode(FFTCode::kFastest);
    prepare();
}

template <class T>
void FFTStepper<T>::selectCode(FFTCode code) {
    stageFunction =
        code == FFTCode::kBaseline ? FFTStageFunction<T>(runBaselineFFTStage) : fastestStageFunction(T());
}

template <class T>
void FFTStepper<T>::prepare() {
    work[0].resize(plan.getSize());
    work[1].resize(plan.getSize());
    stage = plan.getStageCount();
}

template <class T>
void FFTStepper<T>::start(Direction newDirection, const T* newInput, T* newOutput) {
    assert(work[0].getCount() == plan.getSize());
    direction = newDirection;
    input = newInput;
    output = newOutput;
    stage = 0;
    unitsDone = 0;
    pointsDone = 0;
    current = 0;
    if (plan.getSize() == 1)
        output[0] = input[0];
}

template <class T>
void FFTStepper<T>::step(int32_t& budget) {
    const int32_t size = plan.getSize();
    while (budget > 0 && !isFinished()) {
        const int32_t cost = plan.getStageCost(stage);
        const int32_t spent = std::min(budget, cost - unitsDone);
        unitsDone += spent;
        budget -= spent;
        const bool stageDone = unitsDone == cost;
        const auto reachable = static_cast<int32_t>(static_cast<int64_t>(unitsDone) * size / cost) & ~7;
        const int32_t target = stageDone ? size : reachable;
        if (target > pointsDone) {
            runStage(pointsDone, target);
            pointsDone = target;
        }
        if (stageDone) {
            ++stage;
            unitsDone = 0;
            pointsDone = 0;
            current ^= 1;
        }
    }
}

template <class T>
void FFTStepper<T>::runToEnd() {
    int32_t budget = std::numeric_limits<int32_t>::max();
    step(budget);
}

template <class T>
void FFTStepper<T>::forward(const T* samples, T* spectrum) {
    start(Direction::kForward, samples, spectrum);
    runToEnd();
}

template <class T>
void FFTStepper<T>::inverse(const T* spectrum, T* samples) {
    start(Direction::kInverse, spectrum, samples);
    runToEnd();
}

template <class T>
void FFTStepper<T>::runStage(int32_t first, int32_t end) {
    if (plan.getSize() < 8) {
        if (stage == plan.getStageCount() - 1)
            computeSmallDirectly();
        return;
    }
    const FFTStageCall<T> call{&plan,
                               stage,
                               direction == Direction::kInverse,
                               input,
                               work[current].getData(),
                               work[current ^ 1].getData(),
                               output,
                               first,
                               end};
    stageFunction(call);
}

// N = 2 and N = 4 written out; the packed layout holds DC, Nyquist, then bin 1.
template <class T>
void FFTStepper<T>::computeSmallDirectly() {
    const T* in = input;
    if (plan.getSize() == 2) {
        const T a = in[0], b = in[1];
        const T factor = direction == Direction::kInverse ? static_cast<T>(0.5) : static_cast<T>(1);
        output[0] = (a + b) * factor;
        output[1] = (a - b) * factor;
        return;
    }
    const T a = in[0], b = in[1], c = in[2], d = in[3];
    if (direction == Direction::kForward) {
        output[0] = a + b + c + d;
        output[1] = a - b + c - d;
        output[2] = a - c;
        output[3] = d - b;
    } else {
        const T q = static_cast<T>(0.25);
        output[0] = (a + b + 2 * c) * q;
        output[1] = (a - b - 2 * d) * q;
        output[2] = (a + b - 2 * c) * q;
        output[3] = (a - b + 2 * d) * q;
    }
}

template class FFTStepper<float>;
template class FFTStepper<double>;
