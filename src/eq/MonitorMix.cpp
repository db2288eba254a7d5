#include "eq/MonitorMix.h"

#include "foundation/Numbers.h"
#include "wave/BlockMath.h"

#include <algorithm>
#include <cmath>

MonitorMix::MonitorMix(wave::Environment* environment, int32_t maximumDelay)
    : Producer(environment), delay(environment, maximumDelay), amount(environment, 0.0f),
      gain(environment, 1.0f) {
    amount.setRange(0.0f, 1.0f);
    gain.setRange(0.0f, 100.0f);
    for (FloatParameter* control : {&amount, &gain}) {
        control->minimumSmoothingTime.setValue(kFadeMs);
        control->maximumSmoothingTime.setValue(kFadeMs);
    }
    joinResets();
}

void MonitorMix::setInputs(wave::Producer* newProcessed, wave::Producer* newMonitored) {
    processed = newProcessed;
    monitored = newMonitored;
}

void MonitorMix::setDelay(int32_t samples) {
    delaySamples = std::clamp(samples, 0, delay.getMaxDelay());
    delay.setDelay(delaySamples);
    if (monitoring)
        fillCountdown = delaySamples;
}

void MonitorMix::setMonitoring(bool on, float gainDb) {
    gain.setValue(static_cast<float>(dbToGain(gainDb)));
    if (on == monitoring)
        return;
    monitoring = on;
    if (on) {
        if (faded) {
            delay.reset();
            fillCountdown = delaySamples;
            gain.jumpTo(gain.getTarget());
        }
        faded = false;
    } else {
        amount.setValue(0.0f);
    }
}

void MonitorMix::reset() {
    delay.reset();
    fillCountdown = monitoring ? delaySamples : 0;
}

void MonitorMix::process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t) {
    wave::BasicBlock<float>* main = wave::fetchOrZero(processed, numSamples, getEnvironment());
    if (faded) {
        setCurrentBlock(main);
        return;
    }
    delay.write(wave::fetchOrZero(monitored, numSamples, getEnvironment())->getData(), numSamples);
    float* out = block->getData();
    delay.read(delaySamples, out, numSamples);
    if (monitoring) {
        fillCountdown -= numSamples;
        if (fillCountdown <= 0 && amount.getTarget() < 1.0f)
            amount.setValue(1.0f);
    }
    const auto& weights = amount.getValueBlockAt(numSamples);
    const float* w = weights.getData();
    const float* g = gain.getValueBlockAt(numSamples).getData();
    const float* x = main->getData();
    for (int32_t i = 0; i < numSamples; ++i)
        out[i] = x[i] + (out[i] * g[i] - x[i]) * w[i];
    block->setConstant(false);
    setCurrentBlock(block);
    // Fully back on the processed signal: stop computing the monitor from the next block on.
    faded = !monitoring && wave::isConstantAt(weights, 0.0f);
}
