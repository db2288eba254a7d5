#include "wave/BypassProcessor.h"

#include "foundation/Numbers.h"
#include "wave/Block.h"

#include <algorithm>
#include <cmath>
#include <limits>

GenericPluginProcessor::BypassProcessor::BypassProcessor(GenericPluginProcessor& owner)
    : owner(owner), environment(*owner.getEnvironment()), mix(&environment, 0.0f), dryBlock(&environment),
      latency(std::max(owner.latency, 0)), tailState(initialTailState()) {}

int32_t GenericPluginProcessor::BypassProcessor::initialTailState() const {
    return owner.getTailSamples() == kNoTail ? kProducing : 0;
}

void GenericPluginProcessor::BypassProcessor::addChannel() {
    dryDelays[static_cast<size_t>(numDelays)] = std::make_unique<wave::Delay>(&environment, latency, latency);
    ++numDelays;
    // Built outside processing, so that the first block does not have to resize the lines.
    rebuildDryDelays();
}

void GenericPluginProcessor::BypassProcessor::reserveLatency(int32_t samples) {
    reservedLatency = std::max(samples, 0);
    rebuildDryDelays();
}

void GenericPluginProcessor::BypassProcessor::rebuildDryDelays() {
    latency = std::max(owner.latency, 0);
    const float* silence = environment.getZeroBlock()->getData();
    const int32_t maxBlockSize = environment.getMaxBlockSize();
    for (int32_t channel = 0; channel < numDelays; ++channel) {
        wave::Delay& delay = *dryDelays[static_cast<size_t>(channel)];
        delay.setMaxDelay(std::max(latency, reservedLatency));
        delay.setDelay(latency);
        delay.reset();
        // A line holding less than a read reaches back delivers only its fill value, even for the
        // part that was written; a latency of silence up front makes every later read exact.
        for (int32_t left = latency; left > 0; left -= maxBlockSize)
            delay.write(silence, std::min(left, maxBlockSize));
    }
}

void GenericPluginProcessor::BypassProcessor::setBypassed(bool request) {
    const bool leaving = bypassed && !request;
    waitCountdown = owner.latency;
    waiting = !request && owner.latency > 0;
    bypassed = request;
    if (waiting)
        mix.jumpTo(lastMix);
    else
        startFade();
    // The product was skipped while bypassed; its filters must not resume from stale state.
    if (leaving)
        environment.reset(0);
}

void GenericPluginProcessor::BypassProcessor::startFade() {
    // Continue from where the output is, also when a fade the other way is still running.
    mix.jumpTo(lastMix);
    mix.setValue(bypassed ? 1.0f : 0.0f, kBypassFadeMs);
    waiting = false;
}

int32_t GenericPluginProcessor::BypassProcessor::limitChunk(int32_t numSamples) const {
    return waiting && waitCountdown >= 1 ? std::min(numSamples, waitCountdown) : numSamples;
}

void GenericPluginProcessor::BypassProcessor::process(const float* const* inputs, float* const* outputs,
                                                      int32_t numChannels, int32_t offset, int32_t numSamples,
                                                      uint32_t& silenceFlags) {
    if (std::max(owner.latency, 0) != latency)
        rebuildDryDelays();
    environment.nextGeneration();

    if (restartPending) {
        restartPending = false;
        tailState = initialTailState();
        if (waiting) {
            waiting = false;
            lastMix = 0.0f;
            mix.jumpTo(lastMix);
        }
    }
    if (waiting) {
        if (waitCountdown < 1)
            startFade();
        else
            waitCountdown -= numSamples;
    }

    const FloatParameter::ValueBlock& mixBlock = mix.getValueBlock(numSamples);
    const float* mixValues = mixBlock.getData();
    lastMix = mixValues[numSamples - 1];

    for (int32_t channel = 0; channel < numChannels; ++channel)
        dryDelays[static_cast<size_t>(channel)]->write(inputs[channel] + offset, numSamples);

    const bool fullyBypassed = mixBlock.isConstant() && std::fabs(mixValues[0] - 1.0f) <= kFloatEpsilon;
    // While waiting the product runs although the output is still dry, so that its delayed signal
    // is valid when the fade begins.
    const bool ran = !(fullyBypassed && !waiting) &&
                     processWet(inputs, outputs, numChannels, offset, numSamples, silenceFlags);
    environment.advance(numSamples, !ran);

    if (mixBlock.isConstant() && mixValues[0] == 0.0f)
        return;
    float* dry = dryBlock.getData();
    for (int32_t channel = 0; channel < numChannels; ++channel) {
        float* out = outputs[channel] + offset;
        dryDelays[static_cast<size_t>(channel)]->read(latency, dry, numSamples);
        if (fullyBypassed) {
            std::copy_n(dry, numSamples, out);
        } else {
            for (int32_t i = 0; i < numSamples; ++i)
                out[i] += (dry[i] - out[i]) * mixValues[i];
        }
        if (!isSilent(out, numSamples))
            silenceFlags &= ~kOutputSilent;
    }
}

bool GenericPluginProcessor::BypassProcessor::processWet(const float* const* inputs, float* const* outputs,
                                                         int32_t numChannels, int32_t offset,
                                                         int32_t numSamples, uint32_t& silenceFlags) {
    const bool inputSilent = (silenceFlags & kInputSilent) != 0;
    const int32_t tail = owner.getTailSamples();
    // Sound coming in starts the tail count afresh once the input falls silent again; otherwise a
    // count that ran out while the signal still flowed would cut the next tail short.
    if (!inputSilent)
        tailState = kProducing;
    else if (tailState == kProducing && tail >= 0)
        tailState = static_cast<int32_t>(
            std::min<int64_t>(static_cast<int64_t>(latency) + tail, std::numeric_limits<int32_t>::max()));
    else if (tailState == kProducing && latency > 0)
        tailState = latency;

    for (int32_t channel = 0; channel < numChannels; ++channel)
        wetPointers[static_cast<size_t>(channel)] = outputs[channel] + offset;

    if (inputSilent && tailState == 0) {
        // The tail has died away: the silent input stands in for the processed signal.
        for (int32_t channel = 0; channel < numChannels; ++channel) {
            if (inputs[channel] != outputs[channel])
                std::copy_n(inputs[channel] + offset, numSamples, outputs[channel] + offset);
        }
        return false;
    }

    owner.processChannels(wetPointers.data(), numChannels, numSamples);
    if (tailState < 0) {
        if (inputSilent && tail == kInfiniteTail && environment.isAtRest() &&
            owner.isOutputSilent(wetPointers.data(), numChannels, numSamples))
            tailState = 0;
        else
            silenceFlags &= ~kOutputSilent;
        return true;
    }
    tailState = std::max(0, tailState - numSamples);
    // A tail that is not a count hands over to silence detection; a graph still ringing past the
    // declared count keeps being processed until it settles.
    if (tailState == 0 && tail < 0)
        tailState = kTailUnknown;
    else if (tailState == 0 && !environment.isAtRest())
        tailState = 1;
    // The block still carries the end of the tail, whatever the graph says.
    silenceFlags &= ~kOutputSilent;
    return true;
}
