#include "eq/Convolver.h"

#include "eq/ConvolverProcessor.h"
#include "eq/KernelMailbox.h"

#include <algorithm>
#include <bit>
#include <vector>

Convolver::Convolver(wave::Environment* environment, int32_t kernelLength, int32_t firstPartition,
                     int32_t crossfadeSamples)
    : wave::Filter(environment) {
    configure(kernelLength, firstPartition, crossfadeSamples);
}

Convolver::~Convolver() = default;

void Convolver::configure(int32_t kernelLength, int32_t firstPartition, int32_t crossfade) {
    levels.clear();
    mailbox.reset();
    layout = std::make_unique<Layout>(kernelLength, firstPartition);
    mailbox = std::make_unique<KernelMailbox>(*layout);
    // Blocks of the largest level reach 2 B back while the next B samples come in.
    history.resize(4 * layout->getLargestPartition());
    historyMask = history.getCount() - 1;
    for (int32_t level = 0; level < layout->getLevelCount(); ++level)
        levels.push_back(std::make_unique<Processor>(*layout, level, history.getData(), historyMask));
    for (AlignedBuffer<double>& sum : laneSums)
        sum.resize(layout->getFirstPartition());
    crossfadeSamples = std::max(crossfade, 0);

    std::vector<double> unit(static_cast<size_t>(layout->getKernelLength() / 2 + 1), 0.0);
    unit.back() = 1.0;
    Kernel* first = mailbox->adoptFirst();
    first->setImpulseResponse(unit.data(), static_cast<int32_t>(unit.size()));
    laneKernels[0] = first;
    laneKernels[1] = nullptr;
    current = 0;
    incoming = -1;
    fading = false;
    for (auto& level : levels) {
        level->setKernel(0, first);
        level->setKernel(1, nullptr);
    }
    time = 0;
    quietSamples = samplesToRest();
}

Convolver::Kernel* Convolver::acquireFreeKernel() {
    return mailbox->acquire();
}

void Convolver::publishKernel(Kernel* kernel) {
    mailbox->publish(kernel);
}

void Convolver::discardKernel(Kernel* kernel) {
    mailbox->discard(kernel);
}

int32_t Convolver::getLatency() const {
    return layout->getKernelLength() / 2 + layout->getFirstPartition();
}

void Convolver::processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                              int32_t) {
    process(input, block->getData(), numSamples);
}

void Convolver::process(const float* input, float* output, int32_t numSamples) {
    const int32_t b0 = layout->getFirstPartition();
    int32_t done = 0;
    while (done < numSamples) {
        const auto offset = static_cast<int32_t>(time % b0);
        if (offset == 0)
            atBoundary();
        const int32_t count = std::min(numSamples - done, b0 - offset);
        writeHistory(input + done, count);
        mix(output + done, count);
        for (auto& level : levels)
            level->run(count);
        time += count;
        done += count;
    }
}

void Convolver::reset() {
    time = 0;
    quietSamples = samplesToRest();
    for (auto& level : levels)
        level->reset();
    // With the history gone there is nothing to fade from.
    if (incoming >= 0)
        finishCrossfade();
}

bool Convolver::isAtRest() const {
    return quietSamples >= samplesToRest();
}

int64_t Convolver::samplesToRest() const {
    // Input sample t reaches the outputs up to t + b0 + N - 1; the transforms' rounding residues
    // may last up to two blocks of the largest level longer.
    return layout->getKernelLength() + layout->getFirstPartition() + 2 * layout->getLargestPartition();
}

bool Convolver::laneIsValid(int32_t lane) const {
    return std::all_of(levels.begin(), levels.end(),
                       [lane](const auto& level) { return level->isValid(lane); });
}

void Convolver::atBoundary() {
    const auto atLevelBoundary = [this](size_t index) {
        return time % layout->getLevel(static_cast<int32_t>(index)).size == 0;
    };
    for (size_t index = 0; index < levels.size(); ++index)
        if (atLevelBoundary(index))
            levels[index]->endPeriod(time);
    if (incoming >= 0 && !fading && laneIsValid(incoming)) {
        fading = true;
        fadePosition = 0;
        if (crossfadeSamples == 0)
            finishCrossfade();
    }
    if (incoming < 0)
        takeKernel();
    for (size_t index = 0; index < levels.size(); ++index)
        if (atLevelBoundary(index))
            levels[index]->startPeriod(time);
}

void Convolver::takeKernel() {
    const Kernel* kernel = mailbox->take();
    if (kernel == nullptr)
        return;
    incoming = 1 - current;
    laneKernels[incoming] = kernel;
    for (auto& level : levels)
        level->setKernel(incoming, kernel);
    // Nothing has been heard since the reset: no fade needed.
    if (time == 0)
        finishCrossfade();
}

void Convolver::finishCrossfade() {
    const int32_t old = current;
    current = incoming;
    incoming = -1;
    fading = false;
    for (auto& level : levels)
        level->setKernel(old, nullptr);
    mailbox->release(laneKernels[old]);
    laneKernels[old] = nullptr;
}

void Convolver::writeHistory(const float* input, int32_t count) {
    constexpr uint32_t kExponent = 0x7f800000u;
    double* data = history.getData();
    const auto start = static_cast<int32_t>(time & historyMask);
    // Counts never cross the ring's end: steps stay inside one first-level block.
    int32_t lastSound = -1;
    for (int32_t i = 0; i < count; ++i) {
        const float sample = input[i];
        const bool finite = (std::bit_cast<uint32_t>(sample) & kExponent) != kExponent;
        data[start + i] = finite ? sample : 0.0;
        lastSound = finite && sample != 0.0f ? i : lastSound;
    }
    quietSamples = lastSound >= 0 ? count - 1 - lastSound : quietSamples + count;
}

void Convolver::sumLane(int32_t lane, double* out, int32_t count) const {
    std::fill_n(out, count, 0.0);
    for (const auto& level : levels)
        level->addOutput(lane, time, out, count);
}

void Convolver::mix(float* output, int32_t count) {
    double* now = laneSums[0].getData();
    sumLane(current, now, count);
    if (!fading) {
        for (int32_t i = 0; i < count; ++i)
            output[i] = static_cast<float>(now[i]);
        return;
    }
    double* next = laneSums[1].getData();
    sumLane(incoming, next, count);
    const double span = crossfadeSamples;
    for (int32_t i = 0; i < count; ++i) {
        fadePosition = std::min(fadePosition + 1, crossfadeSamples);
        const double weight = fadePosition / span;
        output[i] = static_cast<float>(
            fadePosition == crossfadeSamples ? next[i] : now[i] + (next[i] - now[i]) * weight);
    }
    if (fadePosition == crossfadeSamples)
        finishCrossfade();
}
