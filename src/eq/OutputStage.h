#pragma once

#include "wave/FloatParameter.h"
#include "wave/MultiProducer.h"

#include <array>

// The end of the signal path for one channel or one left/right pair: output level, make-up gain,
// pan and polarity. Pan follows the linear balance law (the centre keeps both sides at full level,
// panning fades the far side) and acts either on left and right or, in mid/side mode, on mid and
// side. Every control is smoothed, a mode or polarity change included, so nothing clicks.
//
// Threading: built under the frame's processing lock; setters and processing on the audio thread.
class OutputStage : public wave::MultiProducer {
public:
    // A pair has two channels (left, right); any other channel is alone and ignores pan.
    OutputStage(wave::Environment* environment, int32_t numChannels);

    void setInput(int32_t channel, wave::Producer* producer) {
        inputs[static_cast<size_t>(channel)] = producer;
    }

    void setLevel(float linearGain) { level.setValue(linearGain); }
    void setMakeUpGain(float linearGain) { makeUp.setValue(linearGain); }
    void setPan(float position) { pan.setValue(position); }
    void setMidSidePan(bool midSide) { midSideAmount.setValue(midSide ? 1.0f : 0.0f); }
    void setInverted(bool inverted) { polarity.setValue(inverted ? -1.0f : 1.0f); }
    // A short fade to silence while the processor changes its setup, and back.
    void setSwitchMute(bool muted) { switchGain.setValue(muted ? 0.0f : 1.0f); }
    bool isSwitchMuted() const { return switchGain.getTarget() == 0.0f && switchGain.isSettled(); }
    // Settles every control at its target at once (a fresh stream).
    void jumpToTargets();

    void processAll(float* const* outputs, int32_t numSamples) override;

private:
    void processPair(const float* left, const float* right, float* outLeft, float* outRight,
                     int32_t numSamples);

    std::array<wave::Producer*, 2> inputs{};
    FloatParameter level;
    FloatParameter makeUp;
    FloatParameter pan;
    FloatParameter midSideAmount;
    FloatParameter polarity;
    FloatParameter switchGain;
};
