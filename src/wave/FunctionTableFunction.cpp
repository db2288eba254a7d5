#include "wave/FunctionTableFunction.h"

#include <algorithm>

void FunctionTableFunction::set(double lowBound, double highBound, int32_t count) {
    size = 2;
    while (size < std::min(count, kMaximumSize))
        size *= 2;
    const double lo = std::min(lowBound, highBound);
    const double hi = std::max(lowBound, highBound);
    const double step = (hi - lo) / (size - 1);
    inverseStep = step > 0.0 ? static_cast<float>(1.0 / step) : 0.0f;
    offset = hi > lo ? (size - 1) * lo / (hi - lo) : 0.0;
    low = static_cast<float>(lo);

    table.assign(static_cast<size_t>(size) + 1, 0.0f);
    table[0] = static_cast<float>(evaluate(lo));
    double x = lo;
    for (int32_t i = 1; i < size - 1; ++i) {
        x += step;
        table[static_cast<size_t>(i)] = static_cast<float>(evaluate(x));
    }
    // The last entry is the function at the bound itself, not at the accumulated argument.
    table[static_cast<size_t>(size) - 1] = static_cast<float>(evaluate(hi));
    table[static_cast<size_t>(size)] = table[static_cast<size_t>(size) - 1];
}

float FunctionTableFunction::value(float x) const {
    if (table.empty())
        return 0.0f;
    const double position = static_cast<double>(x) * inverseStep - offset;
    const auto whole = static_cast<int32_t>(position);
    const auto i = static_cast<size_t>(whole & (size - 1));
    const auto fraction = static_cast<float>(position - whole);
    return table[i] + fraction * (table[i + 1] - table[i]);
}
