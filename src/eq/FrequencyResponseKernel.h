#pragma once

#include "eq/Convolver.h"
#include "eq/FFTPlan.h"
#include "eq/FFTStepper.h"
#include "eq/FrequencyResponseSource.h"
#include "wave/AlignedBuffer.h"

#include <complex>
#include <cstdint>
#include <vector>

// Turns a frequency response into a convolver kernel of N taps. The source must sample the linear
// grid 0 .. fs/2 in N/2 steps (N/2 + 1 points); its complex responses are the spectrum (DC and
// Nyquist taken as real), the inverse transform is the circular impulse response, which is turned
// by N/2 so that time zero lands in the middle (output i = input (i + N/2) mod N) and multiplied
// by the window. The default window is the periodic Hann window 0.5 - 0.5 cos(2 pi i / N), which
// is 1 at N/2, so a flat unit response gives the centred unit impulse. Channels that share a
// response build it once and fill each convolver's kernel from getImpulseResponse().
//
// Threading: any one thread at a time, never the audio thread (the source is computed here).
// Allocates at construction only.
template <class T>
class FrequencyResponseKernel {
public:
    // N: a power of two, at least 2 (other lengths are rounded up).
    explicit FrequencyResponseKernel(int32_t length);

    // N window values.
    void setWindow(const double* values);

    // Builds the impulse response; false when the source's grid does not fit or the result is not
    // finite (the previous impulse response is then lost).
    bool build(DiscreteFrequencyResponseSource& source);
    // Builds and fills the kernel, whose layout must be for N taps.
    bool build(DiscreteFrequencyResponseSource& source, Convolver::Kernel& kernel);

    int32_t getLength() const { return plan.getSize(); }
    const T* getImpulseResponse() const { return impulse.getData(); }
    // Whether a grid is the one this kernel samples.
    bool fitsGrid(const DiscreteFrequencyResponseSource::Mapping& mapping) const;

private:
    FFTPlan<T> plan;
    FFTStepper<T> stepper;
    std::vector<double> window;
    std::vector<std::complex<float>> responses;
    AlignedBuffer<T> spectrum;
    AlignedBuffer<T> impulse;
};

extern template class FrequencyResponseKernel<double>;
