#include "wave/Delay.h"

#include <algorithm>
#include <bit>

namespace wave {

Delay::Delay(Environment* environment, int32_t maxDelay, int32_t delay)
    : environment(environment), maxDelay(std::max(maxDelay, 0)) {
    ring.resize(ringSizeFor(environment->getMaxBlockSize()));
    mask = ring.getCount() - 1;
    setDelay(delay);
    environment->addMaxBlockSizeListener(this);
}

Delay::~Delay() {
    environment->removeMaxBlockSizeListener(this);
}

int32_t Delay::ringSizeFor(int32_t maxBlockSize) const {
    const int32_t needed = maxBlockSize + maxDelay;
    return needed < 2 ? 1 : static_cast<int32_t>(std::bit_ceil(static_cast<uint32_t>(needed)));
}

void Delay::write(const float* in, int32_t numSamples) {
    const int32_t size = ring.getCount();
    if (size == 0)
        return;
    float* data = ring.getData();
    const int32_t first = std::min(numSamples, size - writePosition);
    std::copy_n(in, first, data + writePosition);
    std::copy_n(in + first, numSamples - first, data);
    writePosition = (writePosition + numSamples) & mask;
    written = std::min(written + numSamples, size);
    // Interpolation reads one sample past the newest; before the ring wraps that slot holds no data.
    if (written < size)
        data[writePosition] = 0.0f;
}

void Delay::read(int32_t readDelay, float* out, int32_t numSamples) {
    const int32_t size = ring.getCount();
    const int32_t start = (writePosition - (readDelay + numSamples) + size) & mask;
    if (size == 0 || written <= start) {
        std::fill_n(out, numSamples, fillValue);
        return;
    }
    const float* data = ring.getData();
    const int32_t first = std::min(numSamples, size - start);
    std::copy_n(data + start, first, out);
    std::copy_n(data, numSamples - first, out + first);
}

void Delay::readFractional(const float* delays, float* out, int32_t numSamples) {
    const int32_t size = ring.getCount();
    if (size == 0) {
        std::fill_n(out, numSamples, 0.0f);
        return;
    }
    const float* data = ring.getData();
    const double newest = static_cast<double>(size) + writePosition - numSamples;
    const auto longest = static_cast<float>(size);
    for (int32_t i = 0; i < numSamples; ++i) {
        // NaN, negative and huge delays are pinned to the ring so the index arithmetic stays defined.
        const float delayInSamples = delays[i] >= 0.0f ? std::min(delays[i], longest) : 0.0f;
        const double p = newest + i - delayInSamples;
        const auto whole = static_cast<int64_t>(p);
        const auto k = static_cast<int32_t>(whole & mask);
        const auto k1 = static_cast<int32_t>((whole + 1) & mask);
        const auto f = static_cast<float>(p - static_cast<double>(whole));
        if (k < written)
            out[i] = data[k] + (data[k1] - data[k]) * f;
        else if (k1 < written)
            out[i] = f * data[k1];
        else
            out[i] = 0.0f;
    }
}

void Delay::processInPlace(float* data, int32_t numSamples) {
    write(data, numSamples);
    read(delay, data, numSamples);
}

void Delay::setDelay(int32_t newDelay) {
    delay = std::clamp(newDelay, 0, maxDelay);
}

void Delay::setMaxDelay(int32_t newMaxDelay) {
    newMaxDelay = std::max(newMaxDelay, 0);
    if (newMaxDelay == maxDelay)
        return;
    maxDelay = newMaxDelay;
    ring.resize(ringSizeFor(environment->getMaxBlockSize()));
    mask = ring.getCount() - 1;
    delay = std::min(delay, maxDelay);
    reset();
}

void Delay::maxBlockSizeChanged(int32_t maxBlockSize) {
    const int32_t newSize = ringSizeFor(maxBlockSize);
    if (newSize == ring.getCount())
        return;
    // Move the newest samples so that each keeps its distance behind the write position.
    AlignedBuffer<float> resized(newSize);
    const int32_t kept = std::min(written, newSize);
    for (int32_t age = 1; age <= kept; ++age)
        resized[kept - age] = ring[(writePosition - age) & mask];
    ring.swap(resized);
    mask = newSize - 1;
    written = kept;
    writePosition = kept & mask;
}

void Delay::reset() {
    writePosition = 0;
    written = 0;
    if (ring.getCount() > 0)
        ring[0] = 0.0f;
}

DelayFilterBase::DelayFilterBase(Environment* environment, int32_t maxDelay, int32_t mode)
    : FilterBase(environment), delayLine(environment, maxDelay) {
    setMode(mode);
}

void DelayFilterBase::setMode(int32_t newMode) {
    mode = newMode;
    if (mode == kWriteAtBlockEnd)
        scheduleFirst();
    else
        unschedule();
}

void DelayFilterBase::writeInput(int32_t numSamples) {
    delayLine.write(fetchInput(numSamples)->getData(), numSamples);
}

void DelayFilterBase::process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) {
    const Environment& environment = *getEnvironment();
    if ((flags & kHead) != 0) {
        writeInput(numSamples);
        if (getGeneration() != environment.getGeneration())
            processFilter(block, numSamples, flags);
        return;
    }
    const int64_t position = environment.getPosition();
    if (expectedPosition == environment.getPositionAtLastFullReset() || expectedPosition != position)
        delayLine.reset();
    expectedPosition = position + numSamples;
    if (mode == kWriteWhenPulled)
        writeInput(numSamples);
    processFilter(block, numSamples, flags);
}

void DelayFilter::processFilter(BasicBlock<float>* block, int32_t numSamples, int32_t) {
    Delay& line = getDelayLine();
    line.read(line.getDelay(), block->getData(), numSamples);
}

} // namespace wave
