#pragma once

#include "wave/MultiProducer.h"

namespace wave {

// The linear balance law: the centre keeps both sides at full level, panning fades the far side.
inline float balanceGainLeft(float pan) {
    return 1.0f - (pan > 0.0f ? pan : 0.0f);
}
inline float balanceGainRight(float pan) {
    return 1.0f + (pan < 0.0f ? pan : 0.0f);
}

// Turns a linear level and a pan position (-1 left .. +1 right) into a gain per side by a linear
// balance law: the centre keeps the full level on both sides, and panning fades only the far side,
// to silence at the end of the range. Output 0 is the left gain, output 1 the right gain. An absent
// level reads as silence, an absent pan as the centre.
// Threading: built under the frame's processing lock, then audio thread only.
class LevelPanConverter : public MultiProducer {
public:
    explicit LevelPanConverter(Environment* environment, Producer* level = nullptr, Producer* pan = nullptr)
        : MultiProducer(environment, 2), level(level), pan(pan) {}

    void processAll(float* const* outputs, int32_t numSamples) override;

    void setLevel(Producer* producer) { level = producer; }
    void setPan(Producer* producer) { pan = producer; }
    // Inverts the polarity of both gains.
    void setInvert(bool value) { invert = value; }
    bool isInverted() const { return invert; }

private:
    Producer* level;
    Producer* pan;
    bool invert = false;
};

} // namespace wave
