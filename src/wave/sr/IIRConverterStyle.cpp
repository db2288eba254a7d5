#include "wave/sr/IIRConverterStyle.h"

#include "foundation/EllipticFunctions.h"
#include "wave/sr/IIRConverter.h"

#include <algorithm>
#include <cmath>

namespace sr {

namespace {

// Pass band edges (radians at the stage's output rate) as the plan names them.
constexpr float k044Pi = 1.3823007f;
constexpr float k033Pi = 1.0367255f;
constexpr float k0444Pi = 1.3948672f;
constexpr float k0345Pi = 1.0838494f;
constexpr float k04Pi = 1.2566371f;

// Rates up to this get the long first stage: their pass band reaches close to Nyquist.
constexpr double kLowRateLimit = 48001.0;

struct StagePlan {
    float angle;
    int32_t order;
};
using Plan = std::array<StagePlan, IIRConverterStyle::kMaximumStages>;

// Row k - 1 holds the stages of k doublings, from the base rate upwards.
constexpr std::array<Plan, IIRConverterStyle::kMaximumStages> kLowRatePlans{{
    {{{k044Pi, 13}}},
    {{{k044Pi, 13}, {k033Pi, 7}}},
    {{{k0444Pi, 11}, {k033Pi, 7}, {k033Pi, 7}}},
    {{{k044Pi, 13}, {k0345Pi, 9}, {k033Pi, 7}, {k033Pi, 7}}},
    {{{k044Pi, 13}, {k04Pi, 9}, {k033Pi, 7}, {k033Pi, 7}, {k033Pi, 7}}},
}};
constexpr std::array<Plan, IIRConverterStyle::kMaximumStages> kHighRatePlans{{
    {{{k033Pi, 7}}},
    {{{k033Pi, 7}, {k033Pi, 7}}},
    {{{k0345Pi, 9}, {k033Pi, 7}, {k033Pi, 7}}},
    {{{k033Pi, 7}, {k0345Pi, 9}, {k033Pi, 7}, {k033Pi, 7}}},
    {{{k033Pi, 7}, {k04Pi, 9}, {k033Pi, 7}, {k033Pi, 7}, {k033Pi, 7}}},
}};

} // namespace

IIRConverterStyle::IIRConverterStyle(wave::Environment& environment, int32_t factor)
    // At a rate of 0 only the factor and the stage limit count: the most stages any rate can get.
    : ConverterStyleBase(environment, 1 << stagesFor(factor, 0.0)), requestedFactor(factor) {
    refresh();
}

std::unique_ptr<ConverterBase> IIRConverterStyle::createInterpolator() {
    return std::make_unique<IIRInterpolator>(*this);
}

std::unique_ptr<ConverterBase> IIRConverterStyle::createDecimator() {
    return std::make_unique<IIRDecimator>(*this);
}

void IIRConverterStyle::refresh() {
    if (rateChanged())
        design();
}

int32_t IIRConverterStyle::stagesFor(int32_t factor, double sampleRate) {
    int32_t k = 0;
    while (k < kMaximumStages && (2 << k) <= factor && (2 << k) * sampleRate <= kHighestRate)
        ++k;
    return k;
}

int32_t IIRConverterStyle::latencyFor(int32_t factor, double sampleRate) {
    const int32_t k = stagesFor(factor, sampleRate);
    if (k == 0)
        return 0;
    return std::min(k, 3) + 1 + (k != 3 && sampleRate <= kLowRateLimit ? 1 : 0);
}

int32_t IIRConverterStyle::designHalfBand(double w, int32_t order, float* coefficients) {
    // The elliptic half-band's selectivity is k = tan^2(w / 2); q = 1 / k and the parameter m = k^2.
    const double q = 1.0 / std::pow(std::tan(0.5 * w), 2.0);
    const double modulus = 1.0 / q;
    const double quarterPeriod = elliptic::completeIntegral(modulus);
    const int32_t count = std::clamp((order - 1) / 2, 1, kMaximumCoefficients);
    for (int32_t i = 0; i < count; ++i) {
        const double u = ((2.0 * i + 1.0) / order + 1.0) * quarterPeriod;
        const double sn = elliptic::jacobi(u, modulus).sn;
        const double d = sn * sn;
        const double r = std::sqrt((q * q - d) * (1.0 - d));
        // The loop yields them largest first.
        coefficients[count - 1 - i] = static_cast<float>(((d + q) - r) / ((d + q) + r));
    }
    return count;
}

void IIRConverterStyle::design() {
    const double rate = getEnvironment().getSampleRate();
    // A rate that is not a positive number gets no stages: the converters copy.
    numStages = rate > 0.0 ? stagesFor(requestedFactor, rate) : 0;
    latency = numStages > 0 ? latencyFor(requestedFactor, rate) : 0;
    const Plan& plan = rate <= kLowRateLimit
                           ? kLowRatePlans[static_cast<size_t>(std::max(numStages, 1) - 1)]
                           : kHighRatePlans[static_cast<size_t>(std::max(numStages, 1) - 1)];
    for (int32_t s = 0; s < numStages; ++s) {
        Stage& stage = stages[static_cast<size_t>(s)];
        const StagePlan& step = plan[static_cast<size_t>(s)];
        stage.count = designHalfBand(step.angle, step.order, stage.coefficients.data());
    }
    designed();
}

} // namespace sr
