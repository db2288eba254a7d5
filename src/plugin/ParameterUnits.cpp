#include "plugin/ParameterUnits.h"

#include <cmath>
#include <mutex>

namespace {

struct UnitRegistry {
    std::mutex lock;
    std::vector<const FloatPluginParameterUnit*> units;
};

UnitRegistry& unitRegistry() {
    static UnitRegistry registry;
    return registry;
}

const std::vector<UnitSuffix> kFrequencySuffixes{{"Hz", 1.0}, {"kHz", 1000.0}, {"k", 1000.0}};

double exp2OrZero(double stored) {
    return stored == 0.0 ? 0.0 : std::exp2(stored);
}
double log2OrZero(double hz) {
    return hz <= 0.0 ? 0.0 : std::log2(hz);
}
double exp2Of(double stored) {
    return std::exp2(stored);
}
double log2Of(double hz) {
    return std::log2(hz);
}

// A bare number below the range, or one whose thousandfold value fits where the number itself
// does not, was typed in seconds.
bool bareNumberMeansSeconds(double number, double minimumMs, double maximumMs) {
    return number < minimumMs || (number < 1000.0 && number * 1000.0 <= maximumMs && number > maximumMs);
}

// A bare number above the range, or any number for a sub-second range whose thousandth still
// clears the lower limit, was typed in milliseconds.
bool bareNumberMeansMilliseconds(double number, double minimumSec, double maximumSec) {
    return number > maximumSec || (maximumSec < 1.0 && number * 0.001 > minimumSec);
}

} // namespace

FloatPluginParameterUnit::FloatPluginParameterUnit(std::vector<UnitSuffix> suffixes_, ValueMapping toShown,
                                                   ValueMapping fromShown)
    : suffixes(std::move(suffixes_)), toShownMapping(toShown), fromShownMapping(fromShown) {
    UnitRegistry& registry = unitRegistry();
    std::lock_guard guard(registry.lock);
    registry.units.push_back(this);
}

std::vector<const FloatPluginParameterUnit*> FloatPluginParameterUnit::allUnits() {
    UnitRegistry& registry = unitRegistry();
    std::lock_guard guard(registry.lock);
    return registry.units;
}

std::optional<double> FloatPluginParameterUnit::parse(std::string_view text, double, double) const {
    if (auto typed = parseNumberWithSuffix(text, suffixes))
        return typed->value;
    return std::nullopt;
}

MsParameterUnit::MsParameterUnit()
    : FloatPluginParameterUnit({{"ms", 1.0}, {"sec", 1000.0}, {"s", 1000.0}}) {}

const MsParameterUnit& MsParameterUnit::instance() {
    static const MsParameterUnit unit;
    return unit;
}

std::string MsParameterUnit::format(double shown) const {
    return timeText(shown);
}

std::optional<double> MsParameterUnit::parse(std::string_view text, double shownMinimum,
                                             double shownMaximum) const {
    const auto typed = parseNumberWithSuffix(text, getSuffixes());
    if (!typed)
        return std::nullopt;
    if (!typed->hadSuffix && bareNumberMeansSeconds(typed->value, shownMinimum, shownMaximum))
        return typed->value * 1000.0;
    return typed->value;
}

SecParameterUnit::SecParameterUnit() : FloatPluginParameterUnit({{"sec", 1.0}, {"s", 1.0}, {"ms", 0.001}}) {}

const SecParameterUnit& SecParameterUnit::instance() {
    static const SecParameterUnit unit;
    return unit;
}

std::string SecParameterUnit::format(double shown) const {
    return timeText(shown * 1000.0);
}

std::optional<double> SecParameterUnit::parse(std::string_view text, double shownMinimum,
                                              double shownMaximum) const {
    const auto typed = parseNumberWithSuffix(text, getSuffixes());
    if (!typed)
        return std::nullopt;
    if (!typed->hadSuffix && bareNumberMeansMilliseconds(typed->value, shownMinimum, shownMaximum))
        return typed->value * 0.001;
    return typed->value;
}

FreqParameterUnit::FreqParameterUnit(ValueMapping toShown, ValueMapping fromShown)
    : FloatPluginParameterUnit(kFrequencySuffixes, toShown, fromShown) {}

std::string FreqParameterUnit::format(double shown) const {
    return frequencyText(shown);
}

std::optional<double> FreqParameterUnit::parse(std::string_view text, double shownMinimum,
                                               double shownMaximum) const {
    if (auto hz = FloatPluginParameterUnit::parse(text, shownMinimum, shownMaximum))
        return hz;
    if (auto note = parseNote(text))
        return std::exp2(log2HzFromNote(*note));
    return std::nullopt;
}

HzParameterUnit::HzParameterUnit() : FreqParameterUnit(nullptr, nullptr) {}

const HzParameterUnit& HzParameterUnit::instance() {
    static const HzParameterUnit unit;
    return unit;
}

ExpFreqParameterUnit::ExpFreqParameterUnit(ValueMapping toShown, ValueMapping fromShown)
    : FreqParameterUnit(toShown, fromShown) {}

ExpFreqParameterUnit::ExpFreqParameterUnit() : FreqParameterUnit(exp2Of, log2Of) {}

const ExpFreqParameterUnit& ExpFreqParameterUnit::instance() {
    static const ExpFreqParameterUnit unit;
    return unit;
}

ExpFreqWithZeroParameterUnit::ExpFreqWithZeroParameterUnit() : ExpFreqParameterUnit(exp2OrZero, log2OrZero) {}

const ExpFreqWithZeroParameterUnit& ExpFreqWithZeroParameterUnit::instance() {
    static const ExpFreqWithZeroParameterUnit unit;
    return unit;
}

DBParameterUnitBase::DBParameterUnitBase(std::vector<UnitSuffix> suffixes, int decimals_, int mode_,
                                         ValueMapping toShown, ValueMapping fromShown)
    : FloatPluginParameterUnit(std::move(suffixes), toShown, fromShown), decimals(decimals_), mode(mode_) {}

std::string DBParameterUnitBase::format(double shown) const {
    return decibelText(shown, decimals, mode);
}

DBParameterUnit::DBParameterUnit(ValueMapping toDb, ValueMapping fromDb)
    : DBParameterUnitBase({}, 2, 1, toDb, fromDb) {}

const DBParameterUnit& DBParameterUnit::instance() {
    static const DBParameterUnit unit(nullptr, nullptr);
    return unit;
}

DBRangeParameterUnit::DBRangeParameterUnit()
    : DBParameterUnitBase({{"x", 1.0}, {"%", 0.01}}, 2, 1, nullptr, nullptr) {}

const DBRangeParameterUnit& DBRangeParameterUnit::instance() {
    static const DBRangeParameterUnit unit;
    return unit;
}

std::string DBRangeParameterUnit::format(double shown) const {
    return formatNumber("%.2f", shown);
}

std::string PlainNumberParameterUnit::format(double shown) const {
    return formatNumber("*3f", shown);
}

const OctavesParameterUnit& OctavesParameterUnit::instance() {
    static const OctavesParameterUnit unit;
    return unit;
}

const PercentParameterUnit& PercentParameterUnit::instance() {
    static const PercentParameterUnit unit;
    return unit;
}

const RatioParameterUnit& RatioParameterUnit::instance() {
    static const RatioParameterUnit unit(nullptr, nullptr);
    return unit;
}

SlopeParameterUnit::SlopeParameterUnit() : FloatPluginParameterUnit({}) {}

const SlopeParameterUnit& SlopeParameterUnit::instance() {
    static const SlopeParameterUnit unit;
    return unit;
}

std::string SlopeParameterUnit::format(double shown) const {
    return formatNumber("%.1f", shown);
}
