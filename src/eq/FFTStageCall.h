#pragma once

#include "eq/FFTPlan.h"

#include <cstdint>

// One piece of one FFT stage, as the stepper hands it to the stage code. The same stage code is
// compiled once for the SSE2 baseline and, for double, once more for AVX2 processors; both give
// bit-identical results, so a transform may be stepped on either.
template <class T>
struct FFTStageCall {
    const FFTPlan<T>* plan;
    int32_t stage;
    bool inverse;
    const T* input; // the transform's input, read by stage 0
    T* from;        // work array with the previous stage's result
    T* to;          // work array for this stage's result
    T* output;      // the transform's output, written by the last stage
    int32_t first;  // points [first, end) of the stage, multiples of eight
    int32_t end;
};

template <class T>
using FFTStageFunction = void (*)(const FFTStageCall<T>&);

void runBaselineFFTStage(const FFTStageCall<float>& call);
void runBaselineFFTStage(const FFTStageCall<double>& call);
// Only to be called where the processor supports AVX2.
void runAvx2FFTStage(const FFTStageCall<double>& call);
