#pragma once

#include "plugin/ParameterText.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// How a float parameter's value is shown and typed. A unit may map the stored value to the shown
// one (frequencies are stored as log2 Hz and shown in Hz). Units are process-wide singletons:
// every unit registers itself in one list and lives until the program exits.
class FloatPluginParameterUnit {
public:
    using ValueMapping = double (*)(double);

    FloatPluginParameterUnit(const FloatPluginParameterUnit&) = delete;
    FloatPluginParameterUnit& operator=(const FloatPluginParameterUnit&) = delete;
    virtual ~FloatPluginParameterUnit() = default;

    virtual const char* getName() const = 0;

    // The number only; the interface appends " Hz", " dB" or "%" where it shows values.
    virtual std::string format(double shown) const = 0;

    // Typed text to a shown value. The limits are the parameter's range in shown terms, so a time
    // unit can guess whether a bare number meant seconds or milliseconds.
    virtual std::optional<double> parse(std::string_view text, double shownMinimum,
                                        double shownMaximum) const;

    double toShown(double stored) const { return toShownMapping ? toShownMapping(stored) : stored; }
    double fromShown(double shown) const { return fromShownMapping ? fromShownMapping(shown) : shown; }

    const std::vector<UnitSuffix>& getSuffixes() const { return suffixes; }

    static std::vector<const FloatPluginParameterUnit*> allUnits();

protected:
    explicit FloatPluginParameterUnit(std::vector<UnitSuffix> suffixes, ValueMapping toShown = nullptr,
                                      ValueMapping fromShown = nullptr);

private:
    std::vector<UnitSuffix> suffixes;
    ValueMapping toShownMapping;
    ValueMapping fromShownMapping;
};

// Milliseconds; a bare number may be read as seconds.
class MsParameterUnit : public FloatPluginParameterUnit {
public:
    static const MsParameterUnit& instance();
    const char* getName() const override { return "ms"; }
    std::string format(double shown) const override;
    std::optional<double> parse(std::string_view text, double shownMinimum,
                                double shownMaximum) const override;

private:
    MsParameterUnit();
};

// Seconds; a bare number may be read as milliseconds.
class SecParameterUnit : public FloatPluginParameterUnit {
public:
    static const SecParameterUnit& instance();
    const char* getName() const override { return "sec"; }
    std::string format(double shown) const override;
    std::optional<double> parse(std::string_view text, double shownMinimum,
                                double shownMaximum) const override;

private:
    SecParameterUnit();
};

// Frequencies in Hz, typed as numbers ("2k", "120 Hz") or notes ("A#5 + 20").
class FreqParameterUnit : public FloatPluginParameterUnit {
public:
    std::string format(double shown) const override;
    std::optional<double> parse(std::string_view text, double shownMinimum,
                                double shownMaximum) const override;

protected:
    FreqParameterUnit(ValueMapping toShown, ValueMapping fromShown);
};

// Stored in Hz.
class HzParameterUnit : public FreqParameterUnit {
public:
    static const HzParameterUnit& instance();
    const char* getName() const override { return "Hz"; }

private:
    HzParameterUnit();
};

// Stored as log2(Hz).
class ExpFreqParameterUnit : public FreqParameterUnit {
public:
    static const ExpFreqParameterUnit& instance();
    const char* getName() const override { return "log2 Hz"; }

protected:
    ExpFreqParameterUnit(ValueMapping toShown, ValueMapping fromShown);

private:
    ExpFreqParameterUnit();
};

// Stored as log2(Hz), except that a stored 0 means 0 Hz (off).
class ExpFreqWithZeroParameterUnit : public ExpFreqParameterUnit {
public:
    static const ExpFreqWithZeroParameterUnit& instance();
    const char* getName() const override { return "log2 Hz or 0"; }

private:
    ExpFreqWithZeroParameterUnit();
};

// Decibels shown signed with a fixed number of decimals (mode 1) or significant figures (mode 0).
class DBParameterUnitBase : public FloatPluginParameterUnit {
public:
    std::string format(double shown) const override;

protected:
    DBParameterUnitBase(std::vector<UnitSuffix> suffixes, int decimals, int mode, ValueMapping toShown,
                        ValueMapping fromShown);

private:
    int decimals;
    int mode;
};

// "+3.00". A mapped instance shows a stored value in dB through the given pair of functions.
class DBParameterUnit : public DBParameterUnitBase {
public:
    static const DBParameterUnit& instance();
    DBParameterUnit(ValueMapping toDb, ValueMapping fromDb);
    const char* getName() const override { return "dB"; }
};

// A scale factor on decibel amounts, typed as "1.5x" or "150%".
class DBRangeParameterUnit : public DBParameterUnitBase {
public:
    static const DBRangeParameterUnit& instance();
    const char* getName() const override { return "x"; }
    std::string format(double shown) const override;

private:
    DBRangeParameterUnit();
};

// Units shown as plain numbers.
class PlainNumberParameterUnit : public FloatPluginParameterUnit {
public:
    std::string format(double shown) const override;

protected:
    explicit PlainNumberParameterUnit(ValueMapping toShown = nullptr, ValueMapping fromShown = nullptr)
        : FloatPluginParameterUnit({}, toShown, fromShown) {}
};

class OctavesParameterUnit : public PlainNumberParameterUnit {
public:
    static const OctavesParameterUnit& instance();
    const char* getName() const override { return "oct"; }

private:
    OctavesParameterUnit() = default;
};

class PercentParameterUnit : public PlainNumberParameterUnit {
public:
    static const PercentParameterUnit& instance();
    const char* getName() const override { return "%"; }

private:
    PercentParameterUnit() = default;
};

// A mapped instance shows a stored value as the ratio it stands for (a band's 0..1 Q position as Q).
class RatioParameterUnit : public PlainNumberParameterUnit {
public:
    static const RatioParameterUnit& instance();
    RatioParameterUnit(ValueMapping toRatio, ValueMapping fromRatio)
        : PlainNumberParameterUnit(toRatio, fromRatio) {}
    const char* getName() const override { return "ratio"; }
};

// Slope positions, one decimal.
class SlopeParameterUnit : public FloatPluginParameterUnit {
public:
    static const SlopeParameterUnit& instance();
    const char* getName() const override { return "slope"; }
    std::string format(double shown) const override;

private:
    SlopeParameterUnit();
};
