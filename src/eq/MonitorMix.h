#pragma once

#include "wave/Delay.h"
#include "wave/FloatParameter.h"
#include "wave/Producer.h"

// Replaces a channel's processed signal by a monitor signal (a soloed band's region, or a band's
// detection signal) while a band is being monitored. The monitor is delayed by the processor's
// latency so that switching keeps the timing; it fades in only once its delay line holds real
// signal, and fades out before it stops being computed. Idle, it costs nothing: the processed block
// passes through and the monitor input is not pulled.
//
// Threading: built and sized off the audio thread; everything else on the audio thread.
class MonitorMix : public wave::Producer {
public:
    static constexpr float kFadeMs = 20.0f;

    MonitorMix(wave::Environment* environment, int32_t maximumDelay);

    void setInputs(wave::Producer* processed, wave::Producer* monitored);
    // Off the audio thread: room for the longest latency.
    void setMaximumDelay(int32_t samples) { delay.setMaxDelay(samples); }
    void setDelay(int32_t samples);
    // gainDb applies to the monitor signal (the solo gain).
    void setMonitoring(bool on, float gainDb);

    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void reset() override;
    // A monitor on its way through the delay is still to be heard.
    bool isAtRest() const override { return faded; }

private:
    wave::Producer* processed = nullptr;
    wave::Producer* monitored = nullptr;
    wave::Delay delay;
    FloatParameter amount;
    FloatParameter gain;
    bool monitoring = false;
    bool faded = true;
    int32_t delaySamples = 0;
    // Samples until the delay line holds monitor signal only.
    int32_t fillCountdown = 0;
};
