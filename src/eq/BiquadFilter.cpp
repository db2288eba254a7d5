#include "eq/BiquadFilter.h"

#include "wave/Environment.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

using Coefficients = DigitalSectionCoefficients;

// The same section in the other form. Both forms are the bilinear image of one analog section, so
// the state-variable parameters follow from the denominator at z = 1 and z = -1.
Coefficients stateVariableFromDirectForm(const Coefficients& c) {
    const double b0 = c[0], b1 = c[1], b2 = c[2], a1 = c[3], a2 = c[4];
    const double atNyquist = 1.0 - a1 + a2; // 4 / (1 + g d)
    const double atDc = 1.0 + a1 + a2;      // 4 g^2 / (1 + g d)
    if (!(atNyquist > 0.0 && atDc > 0.0))
        return {0.0, 0.0, b0, 0.0, b0}; // a pole on the unit circle has no state-variable image
    const double g = std::sqrt(atDc / atNyquist);
    const double twoR = 2.0 * (1.0 - a2) / (atNyquist * g);
    return {g, twoR + g, (b0 + b1 + b2) / atDc, 2.0 * (b0 - b2) / (atNyquist * g),
            (b0 - b1 + b2) / atNyquist};
}

Coefficients directFormFromStateVariable(const Coefficients& c) {
    const double g = c[0], d = c[1], mL = c[2], mB = c[3], mH = c[4];
    const double a0 = 1.0 + g * d;
    const double g2 = g * g;
    return {(mH + mB * g + mL * g2) / a0, 2.0 * (mL * g2 - mH) / a0, (mH - mB * g + mL * g2) / a0,
            2.0 * (g2 - 1.0) / a0, (1.0 - g * d + 2.0 * g2) / a0};
}

// The next two outputs the section gives from its state alone (zero input). Two samples determine
// the whole future of a second-order section, so matching them carries the output across forms.
std::array<double, 2> directFormRinging(const Coefficients& c, const SectionState& s) {
    const double r0 = c[1] * s.x1 + c[2] * s.x2 - c[3] * s.y1OrS1 - c[4] * s.y2OrS2;
    const double r1 = c[2] * s.x1 - c[3] * r0 - c[4] * s.y1OrS1;
    return {r0, r1};
}

std::array<double, 2> stateVariableRinging(const Coefficients& c, double s1, double s2) {
    const double g = c[0], d = c[1], mL = c[2], mB = c[3], mH = c[4];
    std::array<double, 2> r{};
    for (double& out : r) {
        const double hp = (-d * s1 - s2) / (1.0 + g * d);
        const double bp = s1 + g * hp;
        const double lp = s2 + g * bp;
        out = mB * bp + mH * hp + mL * lp;
        s1 = bp + g * hp;
        s2 = lp + g * bp;
    }
    return r;
}

// The solution of rows u = targets closest to start (minimum-norm correction). When the rows are
// dependent only the first one is met.
template <size_t N>
std::array<double, N> closestSolution(const std::array<std::array<double, N>, 2>& rows,
                                      const std::array<double, 2>& targets,
                                      const std::array<double, N>& start) {
    std::array<double, 2> error = targets;
    std::array<double, 3> gram{}; // r0.r0, r0.r1, r1.r1
    for (size_t j = 0; j < N; ++j) {
        error[0] -= rows[0][j] * start[j];
        error[1] -= rows[1][j] * start[j];
        gram[0] += rows[0][j] * rows[0][j];
        gram[1] += rows[0][j] * rows[1][j];
        gram[2] += rows[1][j] * rows[1][j];
    }
    const double det = gram[0] * gram[2] - gram[1] * gram[1];
    std::array<double, 2> lambda{};
    if (std::fabs(det) > 1e-12 * gram[0] * gram[2] && det != 0.0)
        lambda = {(gram[2] * error[0] - gram[1] * error[1]) / det,
                  (gram[0] * error[1] - gram[1] * error[0]) / det};
    else if (gram[0] > 0.0)
        lambda = {error[0] / gram[0], 0.0};
    std::array<double, N> u = start;
    for (size_t j = 0; j < N; ++j)
        u[j] += rows[0][j] * lambda[0] + rows[1][j] * lambda[1];
    return u;
}

// Rewrites one section's state for the same section in the other form.
void convertSectionState(const Coefficients& from, const Coefficients& to, DigitalForm toForm,
                         SectionState& s) {
    if (toForm == DigitalForm::StateVariable) {
        const auto ringing = directFormRinging(from, s);
        std::array<std::array<double, 2>, 2> rows{};
        for (size_t j = 0; j < 2; ++j) {
            const auto column = stateVariableRinging(to, j == 0 ? 1.0 : 0.0, j == 1 ? 1.0 : 0.0);
            rows[0][j] = column[0];
            rows[1][j] = column[1];
        }
        const auto integrators = closestSolution<2>(rows, ringing, {0.0, 0.0});
        s.y1OrS1 = integrators[0];
        s.y2OrS2 = integrators[1];
        return;
    }
    // The direct form rings with r0 = b1 x1 + b2 x2 - a1 y1 - a2 y2 and r1 + a1 r0 = b2 x1 - a2 y1;
    // keep the recorded inputs where the equations allow it.
    const auto r = stateVariableRinging(from, s.y1OrS1, s.y2OrS2);
    const double b1 = to[1], b2 = to[2], a1 = to[3], a2 = to[4];
    const std::array<std::array<double, 4>, 2> rows{{{b1, b2, -a1, -a2}, {b2, 0.0, -a2, 0.0}}};
    const auto u = closestSolution<4>(rows, {r[0], r[1] + a1 * r[0]}, {s.x1, s.x2, 0.0, 0.0});
    s = {u[0], u[1], u[2], u[3]};
}

} // namespace

BiquadFilter::BiquadFilter(wave::Environment* environment) : wave::Filter(environment) {
    const Coefficients identity{1.0, 0.0, 0.0, 0.0, 0.0};
    setup.sections.fill(identity);
    setup.oldSections.fill(identity);
}

BiquadFilter::~BiquadFilter() {
    clearLink();
}

void BiquadFilter::clearRunningState() {
    states.fill({});
    oldStates.fill({});
    setup.crossfadePosition = -1;
    fade.current = fade.target;
    fade.remaining = 0;
    fade.step = 0.0f;
    streamPosition = 0;
}

void BiquadFilter::resetStates() {
    clearRunningState();
    if (partner != nullptr && linkMode == kJoint) {
        partner->clearRunningState();
        partner->setup = setup;
    }
}

void BiquadFilter::setLink(int32_t mode) {
    linkMode = partner != nullptr ? mode : kAlone;
}

void BiquadFilter::clearLink() {
    linkMode = kAlone;
    BiquadFilter* former = partner;
    partner = nullptr;
    if (former != nullptr)
        former->clearLink();
}

void BiquadFilter::linkWith(BiquadFilter& other, int32_t mode) {
    clearLink();
    other.clearLink();
    if (mode == kAlone || &other == this)
        return;
    partner = &other;
    other.partner = this;
    setLink(mode);
    other.setLink(mode);
    other.setup = setup;
}

void BiquadFilter::propertyChanged(AbstractProperty& property) {
    if (&property == &enabled)
        startEnableFade();
}

void BiquadFilter::startEnableFade() {
    const bool wasSilent = isSilentCopy();
    fade.target = enabled ? 1.0f : 0.0f;
    // States from before a silent stretch are stale; the filter fades in from rest.
    if (wasSilent && enabled) {
        states.fill({});
        oldStates.fill({});
    }
    const int32_t length =
        static_cast<int32_t>(std::lround(kEnableFadeSeconds * getEnvironment()->getSampleRate()));
    if (streamPosition == 0 || length <= 0) {
        fade.current = fade.target;
        fade.remaining = 0;
        fade.step = 0.0f;
        return;
    }
    fade.remaining = length;
    fade.step = (fade.target - fade.current) / static_cast<float>(length);
}

int32_t BiquadFilter::crossfadeLength() const {
    return std::max(2,
                    static_cast<int32_t>(std::lround(kCrossfadeSeconds * getEnvironment()->getSampleRate())));
}

void BiquadFilter::convertStates(DigitalForm to) {
    BiquadFilter* owners[2] = {this, linkMode != kAlone ? partner : nullptr};
    const auto convertCascade = [&](Sections& sections, int32_t count, bool old) {
        for (int32_t k = 0; k < count; ++k) {
            auto& c = sections[static_cast<size_t>(k)];
            const Coefficients converted = to == DigitalForm::StateVariable ? stateVariableFromDirectForm(c)
                                                                            : directFormFromStateVariable(c);
            for (BiquadFilter* owner : owners)
                if (owner != nullptr)
                    convertSectionState(c, converted, to, (old ? owner->oldStates : owner->states)[k]);
            c = converted;
        }
    };
    convertCascade(setup.sections, setup.numSections, false);
    if (setup.crossfadePosition >= 0)
        convertCascade(setup.oldSections, setup.oldNumSections, true);
}

void BiquadFilter::setForm(DigitalForm form) {
    if (form == setup.form)
        return;
    convertStates(form);
    setup.form = form;
    if (partner != nullptr && linkMode != kAlone)
        partner->setup = setup;
}

void BiquadFilter::setNumberOfSections(int32_t count) {
    count = std::clamp(count, 1, kMaximumSections);
    if (count == setup.numSections)
        return;
    BiquadFilter* owners[2] = {this, linkMode != kAlone ? partner : nullptr};
    const bool crossfade =
        resetMode.getValue() == BiquadProcessor::ResetMode::Crossfade && streamPosition > 0;
    // A change during the old-only first half keeps the old cascade; later, the current one becomes old.
    const bool keepOld = setup.crossfadePosition >= 0 && setup.crossfadePosition < crossfadeLength() / 2;
    for (BiquadFilter* owner : owners) {
        if (owner == nullptr)
            continue;
        if (crossfade && !keepOld)
            owner->oldStates = owner->states;
        else if (!crossfade)
            owner->oldStates.fill({});
        owner->states.fill({});
    }
    if (!crossfade) {
        setup.crossfadePosition = -1;
    } else if (!keepOld) {
        setup.oldSections = setup.sections;
        setup.oldNumSections = setup.numSections;
        setup.oldWet = setup.wet;
        setup.crossfadePosition = 0;
    }
    setup.numSections = count;
    if (owners[1] != nullptr)
        partner->setup = setup;
}

BiquadFilter::Segment* BiquadFilter::appendSegment(int32_t length, int32_t numSections, float wet,
                                                   const Coefficients* sections) {
    length = std::min(length, kChunkSize - segmentEnd);
    if (segmentCount >= kChunkSize || length <= 0)
        return nullptr;
    Segment& segment = segments[static_cast<size_t>(segmentCount++)];
    segment.start = segmentEnd;
    segment.length = length;
    segment.numSections = std::clamp(numSections, 1, kMaximumSections);
    segment.wet = wet;
    segment.ramp = false;
    std::copy_n(sections, segment.numSections, segment.sections.begin());
    segmentEnd += length;
    return &segment;
}

void BiquadFilter::addSegment(int32_t length, int32_t numSections, float wet, const Coefficients* sections) {
    appendSegment(length, numSections, wet, sections);
}

void BiquadFilter::addRamp(int32_t numSections, float wet, const Coefficients* lower,
                           const Coefficients* upper, double position) {
    Segment* segment = appendSegment(1, numSections, wet, lower);
    if (segment == nullptr)
        return;
    segment->ramp = true;
    std::copy_n(upper, segment->numSections, segment->upper.begin());
    rampPositions[static_cast<size_t>(segment->start)] = position;
}

void BiquadFilter::extendRamp(double position) {
    if (segmentCount == 0 || segmentEnd >= kChunkSize)
        return;
    extendSegment(1);
    rampPositions[static_cast<size_t>(segmentEnd - 1)] = position;
}

void BiquadFilter::extendSegment(int32_t length) {
    if (segmentCount == 0)
        return;
    Segment& segment = segments[static_cast<size_t>(segmentCount - 1)];
    length = std::min(length, kChunkSize - segmentEnd);
    if (segment.ramp) // holds its last position
        std::fill_n(rampPositions.begin() + segmentEnd, length,
                    rampPositions[static_cast<size_t>(segmentEnd - 1)]);
    segment.length += length;
    segmentEnd += length;
}

void BiquadFilter::copyFinalCoefficients(const Segment& segment, Sections& out) const {
    if (!segment.ramp) {
        std::copy_n(segment.sections.begin(), segment.numSections, out.begin());
        return;
    }
    const double position = rampPositions[static_cast<size_t>(segment.start + segment.length - 1)];
    for (int32_t k = 0; k < segment.numSections; ++k) {
        const auto index = static_cast<size_t>(k);
        out[index] = biquad_kernels::interpolated(segment.sections[index], segment.upper[index], position);
    }
}

void BiquadFilter::processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                                 int32_t) {
    block->setConstant(false);
    if (partner == nullptr || linkMode == kAlone) {
        processBlock(input, block->getData(), numSamples);
        return;
    }
    // The pair is done in this call: the partner's block is written and marked current for the block.
    wave::BasicBlock<float>* partnerBlock = partner->getOwnBlock();
    const float* partnerInput = partner->fetchInput(numSamples)->getData();
    partnerBlock->setConstant(false);
    processBlock(input, block->getData(), partnerInput, partnerBlock->getData(), numSamples);
    partner->setCurrentBlock(partnerBlock);
    partner->stampGeneration();
}

void BiquadFilter::processBlock(const float* input, float* output, const float* partnerInput,
                                float* partnerOutput, int32_t numSamples) {
    const bool pair =
        partner != nullptr && linkMode != kAlone && partnerInput != nullptr && partnerOutput != nullptr;
    Channel channels[2] = {{this, input, output}, {partner, partnerInput, partnerOutput}};
    for (int32_t offset = 0; offset < numSamples; offset += kChunkSize)
        processChunk(channels, pair ? 2 : 1, offset, std::min(kChunkSize, numSamples - offset));
    if (pair)
        partner->setup = setup;
}

void BiquadFilter::processChunk(Channel* channels, int32_t numChannels, int32_t offset, int32_t count) {
    std::array<Channel, 2> active{};
    int32_t numActive = 0;
    for (int32_t c = 0; c < numChannels; ++c) {
        const Channel& channel = channels[c];
        const float* in = channel.input + offset;
        float* out = channel.output + offset;
        if (in != out)
            std::copy_n(in, count, out);
        if (!channel.owner->isSilentCopy())
            active[static_cast<size_t>(numActive++)] = {channel.owner, in, out};
    }
    if (numActive > 0) {
        segmentCount = 0;
        segmentEnd = 0;
        updateCoefficients(offset, count);
        // The dry signal is only read when something mixes it back in; an in-place buffer needs a copy.
        const bool mixesDry = setup.crossfadePosition >= 0 ||
                              std::any_of(segments.begin(), segments.begin() + segmentCount,
                                          [&](const Segment& s) {
                                              return s.wet != 1.0f || s.numSections != setup.numSections;
                                          }) ||
                              std::any_of(active.begin(), active.begin() + numActive,
                                          [](const Channel& c) { return !c.owner->isFadeDone(); });
        for (int32_t c = 0; c < numActive; ++c) {
            Channel& channel = active[static_cast<size_t>(c)];
            if (channel.input == channel.output && mixesDry) {
                std::copy_n(channel.input, count, dry[static_cast<size_t>(c)].begin());
                channel.input = dry[static_cast<size_t>(c)].data();
            }
        }
        Channel* activePointers[2] = {&active[0], &active[1]};
        runSegments(activePointers, numActive, count);
        for (int32_t c = 0; c < numActive; ++c) {
            Channel& channel = active[static_cast<size_t>(c)];
            channel.owner->applyFade(channel.input, channel.output, count);
            channel.owner->healNonFinite(setup, channel.output, count);
        }
    }
    for (int32_t c = 0; c < numChannels; ++c)
        channels[c].owner->streamPosition += count;
}

template <typename Source>
void BiquadFilter::runCascade(const Source& source, int32_t numSections, bool useOldStates,
                              Channel* const* channels, float* const* samples, int32_t numChannels,
                              int32_t count) {
    const auto statesOf = [&](int32_t c) {
        return (useOldStates ? channels[c]->owner->oldStates : channels[c]->owner->states).data();
    };
    if (numChannels == 2 && linkMode == kJoint) {
        biquad_kernels::cascade<2>(setup.form, source, numSections, {statesOf(0), statesOf(1)},
                                   {samples[0], samples[1]}, count);
        return;
    }
    for (int32_t c = 0; c < numChannels; ++c)
        biquad_kernels::cascade<1>(setup.form, source, numSections, {statesOf(c)}, {samples[c]}, count);
}

void BiquadFilter::runSegments(Channel* const* channels, int32_t numChannels, int32_t count) {
    // Segments run from their own coefficients; the setup takes them over when the section count
    // changes (the crossfade keeps the outgoing ones) and at the end of the chunk.
    const Segment* running = nullptr;
    const auto commit = [&] {
        if (running != nullptr) {
            copyFinalCoefficients(*running, setup.sections);
            setup.wet = running->wet;
        }
    };
    int32_t start = 0;
    for (int32_t index = 0; start < count; ++index) {
        int32_t length = count - start; // uncovered samples keep the last coefficients
        if (index < segmentCount) {
            const Segment& segment = segments[static_cast<size_t>(index)];
            if (segment.numSections != setup.numSections) {
                commit();
                setNumberOfSections(segment.numSections);
            }
            running = &segment;
            length = std::min(segment.length, count - start);
        }
        const float wet = running != nullptr ? running->wet : setup.wet;
        float* samples[2] = {channels[0]->output + start,
                             numChannels > 1 ? channels[1]->output + start : nullptr};
        if (running != nullptr && running->ramp) {
            const biquad_kernels::RampCoefficients ramp{running->sections.data(), running->upper.data(),
                                                        rampPositions.data() + start};
            runCascade(ramp, setup.numSections, false, channels, samples, numChannels, length);
        } else {
            const biquad_kernels::FixedCoefficients fixed{running != nullptr ? running->sections.data()
                                                                             : setup.sections.data()};
            runCascade(fixed, setup.numSections, false, channels, samples, numChannels, length);
        }
        if (wet != 1.0f) {
            for (int32_t c = 0; c < numChannels; ++c) {
                const float* dryInput = channels[c]->input + start;
                for (int32_t i = 0; i < length; ++i)
                    samples[c][i] = dryInput[i] + (samples[c][i] - dryInput[i]) * wet;
            }
        }
        if (setup.crossfadePosition >= 0)
            runCrossfade(channels, numChannels, start, length);
        start += length;
    }
    commit();
}

void BiquadFilter::runCrossfade(Channel* const* channels, int32_t numChannels, int32_t start, int32_t count) {
    float* samples[2] = {old[0].data() + start, old[1].data() + start};
    for (int32_t c = 0; c < numChannels; ++c)
        std::copy_n(channels[c]->input + start, count, samples[c]);
    runCascade(biquad_kernels::FixedCoefficients{setup.oldSections.data()}, setup.oldNumSections, true,
               channels, samples, numChannels, count);
    const int32_t length = crossfadeLength();
    const double scale = 2.0 / length;
    for (int32_t c = 0; c < numChannels; ++c) {
        const float* dryInput = channels[c]->input + start;
        float* out = channels[c]->output + start;
        for (int32_t i = 0; i < count; ++i) {
            const float previous = dryInput[i] + (samples[c][i] - dryInput[i]) * setup.oldWet;
            const auto weight = static_cast<float>(
                std::max(0.0, -1.0 + scale * static_cast<double>(setup.crossfadePosition + i)));
            out[i] = previous + (out[i] - previous) * std::min(weight, 1.0f);
        }
    }
    setup.crossfadePosition += count;
    if (setup.crossfadePosition >= length)
        setup.crossfadePosition = -1;
}

void BiquadFilter::applyFade(const float* dryInput, float* output, int32_t count) {
    if (isFadeDone())
        return;
    for (int32_t i = 0; i < count; ++i) {
        if (fade.remaining > 0) {
            fade.current = --fade.remaining == 0 ? fade.target : fade.current + fade.step;
        }
        output[i] = dryInput[i] + (output[i] - dryInput[i]) * fade.current;
    }
}

void BiquadFilter::healNonFinite(const Setup& running, float* output, int32_t count) {
    // A float is infinite or NaN exactly when its exponent bits are all set; the test vectorises.
    constexpr uint32_t kExponent = 0x7f800000u;
    bool broken = false;
    for (int32_t i = 0; i < count; ++i)
        broken |= (std::bit_cast<uint32_t>(output[i]) & kExponent) == kExponent;
    // x * 0 is 0 for every finite x and NaN otherwise, so one sum tests the states.
    double probe = 0.0;
    const auto probeStates = [&](const States& set, int32_t numSections) {
        for (int32_t k = 0; k < numSections; ++k) {
            const SectionState& s = set[static_cast<size_t>(k)];
            probe += (s.x1 + s.x2 + s.y1OrS1 + s.y2OrS2) * 0.0;
        }
    };
    probeStates(states, running.numSections);
    if (running.crossfadePosition >= 0)
        probeStates(oldStates, running.oldNumSections);
    if (!broken && std::isfinite(probe))
        return;
    states.fill({});
    oldStates.fill({});
    std::fill_n(output, count, 0.0f);
}
