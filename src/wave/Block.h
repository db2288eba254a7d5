#pragma once

#include "wave/AlignedBuffer.h"
#include "wave/Environment.h"

#include <algorithm>

namespace wave {

// Told when the environment's maximum block size changes.
class DynamicMaxBlockSizeListener {
public:
    virtual void maxBlockSizeChanged(int32_t maxBlockSize) = 0;
    virtual ~DynamicMaxBlockSizeListener() = default;
};

// One block of samples, always as long as the environment's maximum block size. When constant is
// set every sample equals the first, and consumers may take the scalar path.
// Threading: audio thread only after construction.
template <class T>
class BasicBlock : public AlignedBuffer<T>, public DynamicMaxBlockSizeListener {
public:
    explicit BasicBlock(Environment* environment) : environment(environment) {
        if (environment == nullptr)
            return;
        environment->addMaxBlockSizeListener(this);
        this->resize(environment->getMaxBlockSize());
    }

    ~BasicBlock() override {
        if (environment != nullptr)
            environment->removeMaxBlockSizeListener(this);
    }

    void maxBlockSizeChanged(int32_t maxBlockSize) override { this->resize(maxBlockSize); }

    Environment* getEnvironment() const { return environment; }
    bool isConstant() const { return constant; }
    void setConstant(bool value) { constant = value; }

private:
    Environment* environment;
    bool constant = false;
};

// A block whose every sample is one fixed value, refilled whenever it is resized.
class ConstValueBlock : public BasicBlock<float> {
public:
    ConstValueBlock(Environment* environment, float value) : BasicBlock<float>(environment), value(value) {
        setConstant(true);
        fill();
    }

    void maxBlockSizeChanged(int32_t maxBlockSize) override {
        BasicBlock<float>::maxBlockSizeChanged(maxBlockSize);
        fill();
    }

    float getValue() const { return value; }

private:
    void fill() { std::fill_n(getData(), getCount(), value); }

    float value;
};

} // namespace wave
