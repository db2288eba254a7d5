#pragma once

#include "wave/Capacitor.h"

namespace wave {

// Turns a signal into its ratio to its own running level, so that a threshold can be relative. The
// slow follower's state is the envelope (floored at 0.01); after a restart a fast follower runs for
// 500 ms and hands its state to the slow one, so the envelope settles quickly.
// Threading: audio thread only after construction; nothing allocates while processing.
class NormalizerStub : public Component {
public:
    static constexpr float kEnvelopeFloor = 0.01f;
    static constexpr double kStartUpMs = 500.0;

    explicit NormalizerStub(Environment* environment);

    // input and output may be the same array; constantInput says every input sample equals the first.
    void process(const float* input, float* output, int32_t numSamples, bool constantInput);
    // Lets the envelope settle again after the detection signal changed; ignored while a start-up
    // window runs or while the envelope is at its floor.
    void restart();
    void reset();

    Capacitor& getSlowFollower() { return slowFollower; }
    Capacitor& getFastFollower() { return fastFollower; }
    void setOutputInDb(bool value) { outputInDb = value; }
    bool isSilent() const { return silent; }
    int32_t getStartUpCountdown() const { return startUpCountdown; }

private:
    Environment* environment;
    Capacitor slowFollower;
    Capacitor fastFollower;
    BasicBlock<float> magnitudes;
    BasicBlock<float> envelopes;
    bool outputInDb = false;
    bool silent = false;
    int32_t startUpCountdown = 0;
};

} // namespace wave
