#include "eq/FrequencyResponseKernel.h"

#include "eq/FFTWindow.h"

#include <algorithm>
#include <cmath>

template <class T>
FrequencyResponseKernel<T>::FrequencyResponseKernel(int32_t length)
    : plan(std::max(length, 2)), stepper(plan), window(static_cast<size_t>(plan.getSize())),
      responses(static_cast<size_t>(plan.getSize() / 2 + 1)), spectrum(plan.getSize()),
      impulse(plan.getSize()) {
    // N values of an (N + 1)-point window: periodic, peaking at N/2.
    FFTWindow::fill(FFTWindow::kHann, 0.0, window.data(), plan.getSize(), plan.getSize() + 1);
}

template <class T>
void FrequencyResponseKernel<T>::setWindow(const double* values) {
    std::copy_n(values, window.size(), window.begin());
}

template <class T>
bool FrequencyResponseKernel<T>::fitsGrid(const DiscreteFrequencyResponseSource::Mapping& mapping) const {
    return !mapping.isLogarithmic() && mapping.getStartFrequency() == 0.0f &&
           mapping.getNumSteps() == plan.getSize() / 2 && mapping.getNumPoints() == plan.getSize() / 2 + 1;
}

template <class T>
bool FrequencyResponseKernel<T>::build(DiscreteFrequencyResponseSource& source) {
    if (!fitsGrid(source.getMapping()))
        return false;
    const int32_t size = plan.getSize();
    const int32_t half = size / 2;
    source.responses(0, half + 1, responses.data());
    T* packed = spectrum.getData();
    packed[0] = responses[0].real();
    packed[1] = responses[static_cast<size_t>(half)].real();
    for (int32_t k = 1; k < half; ++k) {
        packed[2 * k] = responses[static_cast<size_t>(k)].real();
        packed[2 * k + 1] = responses[static_cast<size_t>(k)].imag();
    }
    stepper.inverse(packed, packed);
    bool finite = true;
    for (int32_t i = 0; i < size; ++i) {
        const T tap = static_cast<T>(packed[(i + half) % size] * window[static_cast<size_t>(i)]);
        impulse[i] = tap;
        finite = finite && std::isfinite(tap);
    }
    return finite;
}

template <class T>
bool FrequencyResponseKernel<T>::build(DiscreteFrequencyResponseSource& source, Convolver::Kernel& kernel) {
    if (kernel.getLayout().getKernelLength() != plan.getSize() || !build(source))
        return false;
    return kernel.setImpulseResponse(impulse.getData(), plan.getSize());
}

template class FrequencyResponseKernel<double>;
