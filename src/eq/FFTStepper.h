#pragma once

#include "eq/FFTPlan.h"
#include "eq/FFTStageCall.h"

#include <cstdint>

// The fastest stage code this processor runs (the default), or the SSE2 code every x86-64 runs.
// Both give bit-identical results.
enum class FFTCode { kFastest, kBaseline };

// One real FFT in progress, runnable whole or stage by stage against a work budget, so that a long
// transform can be spread over many audio callbacks. Each stage reads one array and writes the
// other, which is why a stage can stop after any multiple of eight points and resume later with a
// bit-identical result. The budget is in the plan's cost units: spending u of a stage's cost C
// makes floor(u * N / C) points (down to a multiple of eight) of that stage done.
//
// Input and output may be the same array. The input must stay untouched and the output unread
// until the transform is finished. Threading: one thread at a time; prepare() allocates, the rest
// never does.
template <class T>
class FFTStepper {
public:
    enum class Direction { kForward, kInverse };

    explicit FFTStepper(const FFTPlan<T>& plan);

    void selectCode(FFTCode code);
    // Sizes the work arrays for the plan's current size; call after the plan is re-created.
    void prepare();

    // Forward: N real samples in, packed spectrum out (see FFTPlan). Inverse: the reverse, scaled
    // by 1/N.
    void start(Direction direction, const T* input, T* output);
    // Spends up to budget units on the running transform and subtracts what was spent.
    void step(int32_t& budget);
    bool isFinished() const { return stage >= plan.getStageCount(); }
    int32_t getStage() const { return stage; }

    void forward(const T* input, T* spectrum);
    void inverse(const T* spectrum, T* output);

private:
    void runStage(int32_t first, int32_t end);
    void runToEnd();
    void computeSmallDirectly();

    const FFTPlan<T>& plan;
    FFTStageFunction<T> stageFunction = nullptr;
    AlignedBuffer<T> work[2];
    Direction direction = Direction::kForward;
    const T* input = nullptr;
    T* output = nullptr;
    int32_t stage = 0;
    int32_t unitsDone = 0;
    int32_t pointsDone = 0;
    int32_t current = 0; // the work array that holds the last finished stage's result
};

extern template class FFTStepper<float>;
extern template class FFTStepper<double>;
