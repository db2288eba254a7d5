#pragma once

namespace wave {

// Tells consumers that a block's output has settled: it will stay at its last value for as long
// as its input does, so they may take their scalar path.
class SteadyStateSource {
public:
    virtual ~SteadyStateSource() = default;
    virtual bool isSteady() const = 0;
};

} // namespace wave
