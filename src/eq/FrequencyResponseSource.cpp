#include "eq/FrequencyResponseSource.h"

#include "foundation/Numbers.h"

#include <algorithm>
#include <cmath>

using Mapping = DiscreteFrequencyResponseSource::Mapping;

DiscreteFrequencyResponseSource::DiscreteFrequencyResponseSource(Mapping& mapping) : mapping(&mapping) {
    mapping.addListener(this);
}

DiscreteFrequencyResponseSource::~DiscreteFrequencyResponseSource() {
    mapping->removeListener(this);
}

std::complex<float> DiscreteFrequencyResponseSource::responseAtFrequency(float frequency) {
    return responseAt(mapping->indexForFrequency(frequency));
}

std::complex<float> DiscreteFrequencyResponseSource::responseAt(int32_t) {
    return {};
}

void DiscreteFrequencyResponseSource::responses(int32_t first, int32_t count, std::complex<float>* out) {
    for (int32_t i = 0; i < count; ++i)
        out[i] = responseAt(first + i);
}

float DiscreteFrequencyResponseSource::squaredMagnitudeAt(int32_t index) {
    return std::norm(responseAt(index));
}

void DiscreteFrequencyResponseSource::squaredMagnitudes(int32_t first, int32_t count, float* out) {
    for (int32_t i = 0; i < count; ++i)
        out[i] = squaredMagnitudeAt(first + i);
}

Mapping::Mapping(bool isLog, float start, float end, int32_t steps)
    : logarithmic(isLog, this), endFrequency(end, this), startFrequency(start, this), numSteps(steps, this) {
    update();
}

float Mapping::frequencyAt(int32_t index) const {
    const double offset = static_cast<double>(index) * step;
    return static_cast<float>(logarithmic ? startFrequency * std::exp(offset) : startFrequency + offset);
}

int32_t Mapping::indexForFrequency(float frequency) const {
    if (step == 0.0f)
        return 0;
    const double offset = logarithmic ? std::log(static_cast<double>(frequency) / startFrequency)
                                      : static_cast<double>(frequency) - startFrequency;
    return roundToInt(offset / step);
}

const float* Mapping::frequenciesFor(int32_t first, int32_t count, std::vector<float>& scratch) const {
    if (contains(first, count))
        return frequencies.data() + first;
    scratch.resize(static_cast<size_t>(std::max(count, 0)));
    for (int32_t i = 0; i < count; ++i)
        scratch[static_cast<size_t>(i)] = frequencyAt(first + i);
    return scratch.data();
}

void Mapping::removeListener(DiscreteFrequencyResponseSource* listener) {
    if (primaryListener == listener)
        primaryListener = nullptr;
    std::erase(listeners, listener);
}

void Mapping::propertyChanged(AbstractProperty&) {
    update();
    if (primaryListener != nullptr)
        primaryListener->invalidate();
    for (auto it = listeners.rbegin(); it != listeners.rend(); ++it)
        (*it)->invalidate();
}

void Mapping::update() {
    const int32_t steps = std::max<int32_t>(numSteps, 0);
    const double start = startFrequency;
    const double end = endFrequency;
    const double span = logarithmic ? std::log(end / start) : end - start;
    step = steps > 0 ? static_cast<float>(span / steps) : 0.0f;
    if (!std::isfinite(step))
        step = 0.0f;
    frequencies.resize(static_cast<size_t>(steps) + 1);
    for (int32_t i = 0; i <= steps; ++i)
        frequencies[static_cast<size_t>(i)] = frequencyAt(i);
}

CachedDiscreteFrequencyResponseSource::CachedDiscreteFrequencyResponseSource(Mapping& mapping)
    : DiscreteFrequencyResponseSource(mapping), cache(static_cast<size_t>(mapping.getNumPoints())) {}

std::complex<float> CachedDiscreteFrequencyResponseSource::responseAt(int32_t index) {
    if (index >= 0 && index < validCount)
        return cache[static_cast<size_t>(index)];
    const std::complex<float> value = computeResponse(index);
    if (index == validCount && index < static_cast<int32_t>(cache.size()))
        cache[static_cast<size_t>(validCount++)] = value;
    return value;
}

void CachedDiscreteFrequencyResponseSource::invalidate() {
    validCount = 0;
    cache.resize(static_cast<size_t>(getMapping().getNumPoints()));
}

CachedDiscreteMagnitudeResponseSource::CachedDiscreteMagnitudeResponseSource(Mapping& mapping)
    : DiscreteFrequencyResponseSource(mapping), cache(mapping.getNumPoints()) {}

std::complex<float> CachedDiscreteMagnitudeResponseSource::responseAt(int32_t index) {
    return {std::sqrt(squaredMagnitudeAt(index)), 0.0f};
}

float CachedDiscreteMagnitudeResponseSource::squaredMagnitudeAt(int32_t index) {
    if (!getMapping().contains(index, 1))
        return computeSquaredMagnitude(index);
    float value = 0.0f;
    squaredMagnitudes(index, 1, &value);
    return value;
}

void CachedDiscreteMagnitudeResponseSource::squaredMagnitudes(int32_t first, int32_t count, float* out) {
    if (count <= 0)
        return;
    const int32_t size = cache.getCount();
    if (first < 0 || first + count > size) {
        computeSquaredMagnitudes(first, count, out);
        return;
    }
    const int32_t end = first + count;
    if (end > validCount) {
        // The valid count is a multiple of 4 unless it reached the end of the grid, so the extension
        // starts on an aligned entry and never recomputes more than it must.
        const int32_t from = validCount / kVectorWidth * kVectorWidth;
        const int32_t to = std::min((end + kVectorWidth - 1) / kVectorWidth * kVectorWidth, size);
        computeSquaredMagnitudes(from, to - from, cache.getData() + from);
        validCount = to;
    }
    std::copy(cache.getData() + first, cache.getData() + end, out);
}

void CachedDiscreteMagnitudeResponseSource::invalidate() {
    validCount = 0;
    cache.resize(getMapping().getNumPoints());
}
