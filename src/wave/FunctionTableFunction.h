#pragma once

#include <cstdint>
#include <vector>

// A function of one variable tabulated over [low, high] for lookup with linear interpolation. The
// table has a power-of-two size n plus one guard entry that repeats entry n - 1, so that a lookup
// at high itself still has a right neighbour. Arguments outside [low, high] wrap around the table
// instead of clamping: callers keep their arguments inside.
//
// Threading: set builds the table (it allocates); value may then run on the audio thread.
class FunctionTableFunction {
public:
    // Sizes above this are taken as this.
    static constexpr int32_t kMaximumSize = 1 << 16;

    // The function to tabulate.
    virtual double evaluate(double x) const = 0;
    virtual ~FunctionTableFunction() = default;

    // Tabulates evaluate at the least power of two (at least 2) not below count points.
    void set(double low, double high, int32_t count);
    // 0 before the first set.
    float value(float x) const;

    int32_t getSize() const { return size; }
    float getLow() const { return low; }
    const std::vector<float>& getTable() const { return table; }

private:
    float inverseStep = 0.0f;
    // The table position of the argument 0, negated: position = x / step - offset.
    double offset = 0.0;
    float low = 0.0f;
    int32_t size = 0;
    std::vector<float> table;
};
