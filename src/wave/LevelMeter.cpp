#include "wave/LevelMeter.h"

#include "wave/FastLevel.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace wave {

namespace {

// Ages and merged sample counts stop growing here; beyond a second everything reads as the floor.
constexpr int32_t kCountLimit = std::numeric_limits<int32_t>::max() / 2;

int32_t addCounts(int32_t a, int32_t b) {
    return std::min(static_cast<int64_t>(a) + b, static_cast<int64_t>(kCountLimit));
}

} // namespace

LevelMeter::LevelMeter(Environment* environment, std::unique_ptr<IntervalTimer> provider)
    : FilterBase(environment, false), sampleRate(environment->getSampleRate()),
      timeProvider(provider != nullptr ? std::move(provider) : std::make_unique<MonotonicIntervalTimer>()),
      lastReadMs(timeProvider->elapsedMilliseconds()), current(minimum), held(minimum), maximumPeak(minimum) {
}

float LevelMeter::blockLevel(const BasicBlock<float>& block, int32_t numSamples) const {
    const float* x = block.getData();
    const int32_t count = block.isConstant() ? std::min(numSamples, 1) : numSamples;
    float level = 0.0f;
    switch (audioDomain.load(std::memory_order_relaxed)) {
    case kAmplitude:
        for (int32_t i = 0; i < count; ++i)
            level = std::max(level, std::fabs(x[i]));
        break;
    case kPower: {
        double sum = 0.0;
        for (int32_t i = 0; i < count; ++i)
            sum += static_cast<double>(x[i]) * x[i];
        level = count > 0 ? static_cast<float>(sum / count) : 0.0f;
        break;
    }
    default: {
        const bool lowerIsMore = audioDirection.load(std::memory_order_relaxed) == 1;
        level = count > 0 ? x[0] : 0.0f;
        for (int32_t i = 1; i < count; ++i)
            level = lowerIsMore ? std::min(level, x[i]) : std::max(level, x[i]);
        break;
    }
    }
    // A NaN would stick in the merged record for as long as nobody reads it.
    return std::isnan(level) ? 0.0f : level;
}

LevelHandOver::Record LevelMeter::merge(const LevelHandOver::Record& older,
                                        const LevelHandOver::Record& newer) const {
    LevelHandOver::Record merged{newer.value, addCounts(older.sampleCount, newer.sampleCount)};
    switch (audioDomain.load(std::memory_order_relaxed)) {
    case kAmplitude:
        merged.value = std::max(older.value, newer.value);
        break;
    case kPower:
        // Mean square over both stretches.
        merged.value =
            static_cast<float>((static_cast<double>(older.value) * older.sampleCount +
                                static_cast<double>(newer.value) * newer.sampleCount) /
                               std::max(static_cast<double>(older.sampleCount) + newer.sampleCount, 1.0));
        break;
    default:
        merged.value = audioDirection.load(std::memory_order_relaxed) == 1
                           ? std::min(older.value, newer.value)
                           : std::max(older.value, newer.value);
        break;
    }
    return merged;
}

void LevelMeter::process(BasicBlock<float>*, int32_t numSamples, int32_t) {
    BasicBlock<float>* input = fetchInput(numSamples);
    setCurrentBlock(input);
    sampleRate.store(getEnvironment()->getSampleRate(), std::memory_order_relaxed);
    handOver.publish({blockLevel(*input, numSamples), numSamples},
                     [this](const LevelHandOver::Record& unread, const LevelHandOver::Record& newer) {
                         return merge(unread, newer);
                     });
}

float LevelMeter::clampValue(float value) const {
    return std::clamp(value, minimum, maximum);
}

float LevelMeter::displayValue(const LevelHandOver::Record& record) const {
    if (static_cast<float>(record.sampleCount) > sampleRate.load(std::memory_order_relaxed))
        return floorValue();
    float value = record.value;
    if (levelDomain.getValue() == kPower)
        value = std::sqrt(std::max(value, 0.0f));
    return displayInDb.getValue() ? fastAmplitudeToDb(value) : value;
}

void LevelMeter::advancePeak(float value, int32_t elapsedSamples) {
    current = clampValue(value);
    if (isMore(value, held)) {
        held = current;
        heldAge = 0;
    } else {
        heldAge = addCounts(heldAge, elapsedSamples);
        if (heldAge > holdSamples) {
            // The fall speeds up with the age of the peak.
            const float step = static_cast<float>(heldAge) * fallPerSample;
            held = direction == 1 ? std::min(held + step, current) : std::max(held - step, current);
            held = clampValue(held);
        }
    }
    if (isMore(value, maximumPeak))
        maximumPeak = current;
}

LevelSource::Info LevelMeter::getLevelInfo() {
    const int32_t nowMs = timeProvider->elapsedMilliseconds();
    // Modulo 2^32, so that the counter wrapping after 24.8 days neither overflows nor stalls the fall.
    const int32_t elapsedMs =
        std::max(static_cast<int32_t>(static_cast<uint32_t>(nowMs) - static_cast<uint32_t>(lastReadMs)), 0);
    lastReadMs = nowMs;
    LevelHandOver::Record record;
    if (handOver.take(record)) {
        advancePeak(displayValue(record), record.sampleCount);
    } else {
        const double rate = sampleRate.load(std::memory_order_relaxed);
        const auto elapsedSamples = static_cast<int32_t>(std::min(elapsedMs * rate * 0.001, 1e9));
        advancePeak(floorValue(), elapsedSamples);
    }
    return {current, held, maximumPeak};
}

LevelSource::Detection LevelMeter::getDetection() const {
    return {levelDomain.getValue(), displayInDb.getValue(), direction};
}

void LevelMeter::propertyChanged(AbstractProperty& property) {
    if (&property == &levelDomain)
        audioDomain.store(levelDomain.getValue(), std::memory_order_relaxed);
    // Values in the old unit mean nothing in the new one.
    restartDisplay();
}

void LevelMeter::restartDisplay() {
    current = held = maximumPeak = floorValue();
    heldAge = 0;
}

void LevelMeter::setDirection(int32_t value) {
    direction = value;
    audioDirection.store(value, std::memory_order_relaxed);
    restartDisplay();
}

void LevelMeter::setClampRange(float minimumValue, float maximumValue) {
    minimum = minimumValue;
    maximum = maximumValue;
    restartDisplay();
}

} // namespace wave
