#include "wave/Environment.h"

#include "foundation/Numbers.h"
#include "wave/Block.h"
#include "wave/Producer.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace wave {

namespace {

template <class T>
void eraseFirst(std::vector<T*>& list, T* item) {
    const auto found = std::find(list.begin(), list.end(), item);
    if (found != list.end())
        list.erase(found);
}

} // namespace

Environment::Environment(int32_t maxBlockSize, int32_t secondSize)
    : maxBlockSize(maxBlockSize), secondSize(secondSize),
      zeroBlock(std::make_unique<ConstValueBlock>(this, 0.0f)) {}

Environment::~Environment() {
    setClosing(true);
    zeroBlock.reset();
}

int32_t Environment::getMaxBlockSize() const {
    return maxBlockSize;
}

void Environment::addMaxBlockSizeListener(DynamicMaxBlockSizeListener* listener) {
    blockSizeListeners.push_back(listener);
}

void Environment::removeMaxBlockSizeListener(DynamicMaxBlockSizeListener* listener) {
    eraseFirst(blockSizeListeners, listener);
}

void Environment::setMaxBlockSize(int32_t size) {
    maxBlockSize = size;
    for (auto* listener : blockSizeListeners)
        listener->maxBlockSizeChanged(size);
    for (auto* child : children)
        child->parentMaxBlockSizeChanged(size);
}

void Environment::setSampleRate(float rate) {
    const float oldRate = sampleRate;
    sampleRate = rate;
    for (auto* child : children)
        child->parentSampleRateChanged(rate);
    if (std::fabs(rate - oldRate) <= kFloatEpsilon)
        return;
    reset(1);
    if (primaryListener != nullptr)
        primaryListener->sampleRateChanged(rate);
    for (auto listener = sampleRateListeners.rbegin(); listener != sampleRateListeners.rend(); ++listener)
        (*listener)->sampleRateChanged(rate);
}

void Environment::addSampleRateListener(SampleRateListener* listener) {
    sampleRateListeners.push_back(listener);
}

void Environment::removeSampleRateListener(SampleRateListener* listener) {
    eraseFirst(sampleRateListeners, listener);
}

int32_t Environment::msToSamples(double ms, double rate) {
    return static_cast<int32_t>(rate * ms * 0.001);
}

double Environment::samplesToMs(int32_t samples) const {
    if (samples == 0)
        return 0.0;
    return (samples + 0.4) / (static_cast<double>(sampleRate) * 0.001);
}

int32_t Environment::secondsToSamples(double seconds) const {
    return static_cast<int32_t>(seconds * static_cast<double>(sampleRate));
}

int32_t Environment::getRateFactor(double rate) {
    const int32_t multiple = std::max(1, roundToInt(rate / 48000.0));
    return static_cast<int32_t>(std::bit_ceil(static_cast<uint32_t>(multiple)));
}

void Environment::nextGeneration() {
    // Wraps instead of overflowing; only equality with a producer's stamp matters.
    generation = static_cast<int32_t>(static_cast<uint32_t>(generation) + 1u);
    for (auto* child : children)
        child->nextGeneration();
}

void Environment::advance(int32_t numSamples, bool skipScheduled) {
    if (!skipScheduled) {
        // Indexed: a driven producer may enable or disable others, which edits the list in place.
        for (size_t index = 0; index < schedule.size(); ++index)
            schedule[index]->drive(numSamples);
    }
    position += numSamples;
    for (auto* child : children)
        child->advance(numSamples, skipScheduled);
}

void Environment::reset(int32_t kind) {
    positionAtLastReset = position;
    if (kind != 2) {
        positionAtLastFullReset = position;
        for (size_t index = 0; index < resetList.size(); ++index) {
            Producer* producer = resetList[index];
            if (kind == 1 || producer->isEnabled())
                producer->reset();
        }
    }
    if (kind == 3)
        return;
    for (auto* child : children)
        child->reset(kind);
}

bool Environment::isAtRest() const {
    return std::all_of(children.begin(), children.end(),
                       [](const auto* child) { return child->isAtRest(); }) &&
           std::all_of(resetList.begin(), resetList.end(),
                       [](const auto* producer) { return producer->isAtRest(); });
}

void Environment::setClosing(bool value) {
    closing = value;
    for (auto* child : children)
        child->setClosing(value);
}

void Environment::setDisplayActive(bool value) {
    displayActive = value;
    for (auto* child : children)
        child->setDisplayActive(value);
}

void Environment::registerProducer() {
    ++producerCount;
    reserveLists();
}

void Environment::reserveLists() {
    // Grow geometrically so that building a large graph does not reallocate for every producer.
    const auto needed = static_cast<size_t>(producerCount);
    if (schedule.capacity() < needed)
        schedule.reserve(std::max(needed, schedule.capacity() * 2));
    if (resetList.capacity() < needed)
        resetList.reserve(std::max(needed, resetList.capacity() * 2));
}

void Environment::unregisterProducer(Producer* producer) {
    if (closing)
        return;
    if (producer->isScheduled() && producer->isEnabled())
        removeScheduled(producer);
    if (producer->isInResetList())
        eraseFirst(resetList, producer);
}

void Environment::insertScheduled(Producer* producer) {
    switch (producer->getScheduleMode()) {
    case Producer::kScheduleHead:
        schedule.insert(schedule.begin(), producer);
        ++headCount;
        break;
    case Producer::kScheduleEarly:
        schedule.insert(schedule.begin() + headCount, producer);
        break;
    default:
        schedule.push_back(producer);
        break;
    }
}

void Environment::removeScheduled(Producer* producer) {
    if (closing)
        return;
    const auto found = std::find(schedule.begin(), schedule.end(), producer);
    if (found == schedule.end())
        return;
    schedule.erase(found);
    if (producer->getScheduleMode() == Producer::kScheduleHead)
        --headCount;
}

void Environment::joinResetList(Producer* producer) {
    resetList.push_back(producer);
}

void Environment::addChild(ChildEnvironment* child) {
    children.push_back(child);
    child->closing = closing;
    child->displayActive = displayActive;
}

void Environment::removeChild(ChildEnvironment* child) {
    eraseFirst(children, child);
}

ChildEnvironment::ChildEnvironment(Environment& parent, int32_t rateFactor)
    : Environment(parent.getMaxBlockSize() * rateFactor, parent.getSecondSize() * rateFactor), parent(parent),
      rateFactor(rateFactor) {
    Environment::setSampleRate(parent.getSampleRate() * static_cast<float>(rateFactor));
    parent.addChild(this);
}

ChildEnvironment::~ChildEnvironment() {
    parent.removeChild(this);
}

void ChildEnvironment::advance(int32_t parentSamples, bool skipScheduled) {
    Environment::advance(parentSamples * rateFactor, skipScheduled);
}

} // namespace wave
