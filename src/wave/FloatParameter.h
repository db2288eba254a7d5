#pragma once

#include "foundation/Property.h"
#include "wave/Producer.h"

#include <vector>

// A continuously variable control on the signal path. A new target may arrive at any time; each
// block read delivers per-sample values that ramp linearly to it, and a steady value is delivered as
// a constant block so consumers can take their scalar path. Without an explicit time the ramp length
// adapts to the size of the change: a small change is smoothed over the maximum smoothing time, a
// change of 30 % of the range or more over the minimum.
//
// Threading: setValue, jumpTo and the block getters run on the audio thread only; values from other
// threads arrive through the frame's parameter queue. Nothing allocates after construction.
class FloatParameter : public wave::Component, public ValueAssignable<float> {
public:
    // The parameter's per-sample values; the parameter rewrites it completely after a resize.
    class ValueBlock : public wave::BasicBlock<float> {
    public:
        ValueBlock(wave::Environment* environment, FloatParameter& owner)
            : wave::BasicBlock<float>(environment), owner(owner) {}

        void maxBlockSizeChanged(int32_t maxBlockSize) override;

    private:
        FloatParameter& owner;
    };

    FloatParameter(wave::Environment* environment, float initial);

    // Adaptive smoothing time.
    void setValue(float value) override { setValue(value, -1.0f); }
    // A negative time asks for the adaptive time.
    void setValue(float value, float timeMs);
    void jumpTo(float value);
    // A range of 0 or less means maximum - minimum.
    void setRange(float minimum, float maximum, float range = 0.0f);

    ValueBlock& getValueBlock(int32_t numSamples);
    // As getValueBlock, first catching up with samples that passed while nobody read the parameter.
    ValueBlock& getValueBlockAt(int32_t numSamples);

    float getTarget() const { return target; }
    float getMinimum() const { return minimum; }
    float getMaximum() const { return maximum; }
    float getRange() const { return range; }
    int32_t getRampLength() const { return rampLength; }
    // The values delivered so far have reached the target.
    bool isSettled() const { return done >= rampLength; }
    float getIncrement() const { return increment; }
    float getRampStart() const { return rampStart; }

    // When positive the value is circular with this period and ramps take the shorter way round.
    Property<float> wrapPeriod{0.0f};
    Property<float> maximumSmoothingTime{150.0f};
    Property<float> minimumSmoothingTime{20.0f};

private:
    // Read continuously up to now, so that a running ramp can be continued from where it is.
    bool isLive() const;
    float clamp(float value) const;
    void jump(float value);
    float adaptiveTimeMs(float change) const;

    wave::Environment* environment;
    ValueBlock valueBlock;
    int32_t filled = 0;
    int32_t done = 0;
    int32_t rampLength = 0;
    float rampStart;
    float increment = 0.0f;
    float maximum;
    float minimum;
    float range;
    int64_t position = 0;
    float target;
};

// A FloatParameter in the graph: its output is the parameter's value block, handed on unchanged.
// Threading: audio thread only after construction.
class FloatParameterSource : public wave::Source, public ValueAssignable<float> {
public:
    FloatParameterSource(wave::Environment* environment, float initial)
        : wave::Source(environment, false), parameter(environment, initial) {}

    void setValue(float value) override { parameter.setValue(value); }
    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;

    FloatParameter& getParameter() { return parameter; }

private:
    FloatParameter parameter;
};

// Fans one assigned value out to several targets, in the order they were added. Targets are added
// while the graph is built; setValue then runs on the audio thread.
class FloatParameterBus : public ValueAssignable<float> {
public:
    void addTarget(ValueAssignable<float>* target) { targets.push_back(target); }
    void setValue(float value) override;

private:
    std::vector<ValueAssignable<float>*> targets;
};
