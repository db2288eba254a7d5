#pragma once

#include "foundation/Numbers.h"
#include "plugin/ParameterText.h"
#include "plugin/ParameterUnits.h"
#include "plugin/ProgrammingError.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class GenericParameterOwner;

// Told of every value change: the parameter's global index and its new plain value.
class PluginParameterListener {
public:
    virtual ~PluginParameterListener() = default;
    virtual void parameterValueChanged(int32_t index, float plainValue) = 0;
};

// The controller-side description and current value of one host-automatable quantity. A
// parameter registers itself with its owner (a parameter set or the plug-in) when it is
// constructed; the owner only records it, assigns the global index and becomes its listener.
class AbstractPluginParameter {
public:
    AbstractPluginParameter(GenericParameterOwner& owner, std::string name, std::string helpText,
                            bool automatable = true);
    AbstractPluginParameter(const AbstractPluginParameter&) = delete;
    AbstractPluginParameter& operator=(const AbstractPluginParameter&) = delete;
    virtual ~AbstractPluginParameter() = default;

    virtual double getNormalized() const = 0;
    virtual void setNormalized(double normalized) = 0;
    virtual float getPlain() const = 0;
    virtual void setPlain(float plain) = 0;
    virtual double getDefaultNormalized() const = 0;
    virtual float getDefaultPlain() const = 0;
    virtual float getMinimum() const = 0;
    virtual float getMaximum() const = 0;
    // 0 for continuous parameters.
    virtual int32_t getNumSteps() const = 0;

    // Conversions that leave the parameter alone (a host's values on their way elsewhere).
    virtual float plainOfNormalized(double normalized) const = 0;
    virtual double normalizedOfPlain(float plain) const = 0;

    virtual std::string getText() const = 0;
    virtual std::string getTextForNormalized(double normalized) const = 0;
    // False (and nothing changes) when the text is neither a number, a note nor an item text.
    virtual bool parseText(std::string_view text, double& normalized) const = 0;
    // The texts of a value list; empty for parameters without one.
    virtual const std::vector<std::string>& getItemTexts() const;

    const std::string& getName() const { return name; }
    const std::string& getHelpText() const { return helpText; }
    bool isAutomatable() const { return automatable; }
    int32_t getIndex() const { return index; }
    // -1 asks about any parameter.
    bool hasIndex(int32_t queried) const { return queried == -1 || queried == index; }
    GenericParameterOwner& getOwner() const { return *owner; }

    void resetToDefault() { setPlain(getDefaultPlain()); }
    void beginEdit();
    void endEdit();

    // Called by the owner that registers the parameter.
    void setIndex(int32_t globalIndex) { index = globalIndex; }
    void setListener(PluginParameterListener* newListener) { listener = newListener; }

protected:
    void notifyValueChanged(float plainValue) const {
        if (listener)
            listener->parameterValueChanged(index, plainValue);
    }

private:
    GenericParameterOwner* owner;
    bool automatable;
    std::string name;
    std::string helpText;
    int32_t index = -1;
    PluginParameterListener* listener = nullptr;
};

// A parameter whose plain value has type T.
template <typename T>
class TypedPluginParameter : public AbstractPluginParameter {
public:
    using AbstractPluginParameter::AbstractPluginParameter;
    virtual T getValue() const = 0;
    virtual void setValue(T newValue) = 0;
};

// Splits "Left,Right,Stereo" at the commas.
std::vector<std::string> splitItemList(std::string_view itemList);

// A stepped parameter whose item index runs from minimum to maximum. With a value table the
// stored value is a T from the table; item index i stands for table[i - offset] (clamped), and a
// stored value missing from the table counts as index offset.
template <typename T>
class IndexedPluginParameter : public TypedPluginParameter<T> {
public:
    // A value list; the default is an item index.
    IndexedPluginParameter(GenericParameterOwner& owner, std::string name, std::string_view itemList,
                           int32_t defaultIndex, std::string helpText = {})
        : TypedPluginParameter<T>(owner, std::move(name), std::move(helpText)),
          itemTexts(splitItemList(itemList)), maximum(static_cast<int32_t>(itemTexts.size()) - 1),
          defaultValue(defaultIndex), value(defaultIndex) {
        requireIndexInRange(defaultIndex);
    }

    // A plain integer range without texts.
    IndexedPluginParameter(GenericParameterOwner& owner, std::string name, int32_t minimum_, int32_t maximum_,
                           int32_t defaultIndex, std::string helpText = {})
        : TypedPluginParameter<T>(owner, std::move(name), std::move(helpText)), minimum(minimum_),
          maximum(maximum_), defaultValue(defaultIndex), value(defaultIndex) {
        requireIndexInRange(defaultIndex);
    }

    // Items standing for the values of a table; the default is a table value. Without item texts
    // the items run from 0 to offset + table size - 1 and show the table's numbers.
    IndexedPluginParameter(GenericParameterOwner& owner, std::string name, std::string_view itemList,
                           std::span<const int32_t> valueTable_, int32_t indexOffset_,
                           int32_t defaultTableValue, std::string helpText = {})
        : TypedPluginParameter<T>(owner, std::move(name), std::move(helpText)),
          itemTexts(splitItemList(itemList)),
          maximum(itemTexts.empty() ? indexOffset_ + static_cast<int32_t>(valueTable_.size()) - 1
                                    : static_cast<int32_t>(itemTexts.size()) - 1),
          valueTable(valueTable_), indexOffset(indexOffset_), defaultValue(defaultTableValue),
          value(defaultTableValue) {
        if (valueTable.empty())
            failProgrammingError("empty value table");
        requireIndexInRange(itemIndexOfValue(defaultTableValue));
    }

    int32_t getItemIndex() const { return itemIndexOfValue(value); }
    int32_t getMinimumIndex() const { return minimum; }
    int32_t getMaximumIndex() const { return maximum; }

    // Value table lookups; without a table value and item index are the same.
    int32_t valueOfItemIndex(int32_t itemIndex) const {
        if (valueTable.empty())
            return itemIndex;
        const int32_t last = static_cast<int32_t>(valueTable.size()) - 1;
        return valueTable[static_cast<size_t>(std::clamp(itemIndex - indexOffset, 0, last))];
    }
    int32_t itemIndexOfValue(int32_t storedValue) const {
        if (valueTable.empty())
            return storedValue;
        const auto found = std::find(valueTable.begin(), valueTable.end(), storedValue);
        return found == valueTable.end() ? indexOffset
                                         : static_cast<int32_t>(found - valueTable.begin()) + indexOffset;
    }

    // A small per-item number the band editor can use to group menu entries; 0 unless overridden.
    virtual int32_t getItemGroup(int32_t) const { return 0; }

    double getNormalized() const override { return normalizedOfItemIndex(getItemIndex()); }
    void setNormalized(double normalized) override {
        storeValue(valueOfItemIndex(itemIndexOfNormalized(normalized)));
    }
    float plainOfNormalized(double normalized) const override {
        return static_cast<float>(valueOfItemIndex(itemIndexOfNormalized(normalized)));
    }
    double normalizedOfPlain(float plain) const override {
        if (std::isnan(plain))
            return getDefaultNormalized();
        const int32_t stored = roundToInt(std::clamp(plain, -2.0e9f, 2.0e9f));
        return normalizedOfItemIndex(std::clamp(itemIndexOfValue(stored), minimum, maximum));
    }
    float getPlain() const override { return static_cast<float>(value); }
    void setPlain(float plain) override {
        if (!std::isnan(plain))
            storeValue(roundToInt(std::clamp(plain, -2.0e9f, 2.0e9f)));
    }
    double getDefaultNormalized() const override {
        return normalizedOfItemIndex(itemIndexOfValue(defaultValue));
    }
    float getDefaultPlain() const override { return static_cast<float>(defaultValue); }
    float getMinimum() const override { return static_cast<float>(minimum); }
    float getMaximum() const override { return static_cast<float>(maximum); }
    int32_t getNumSteps() const override { return maximum - minimum; }

    std::string getText() const override { return textOfItemIndex(getItemIndex()); }
    std::string getTextForNormalized(double normalized) const override {
        return textOfItemIndex(itemIndexOfNormalized(normalized));
    }
    bool parseText(std::string_view text, double& normalized) const override {
        const auto item = std::find(itemTexts.begin(), itemTexts.end(), text);
        if (item != itemTexts.end()) {
            normalized = normalizedOfItemIndex(minimum + static_cast<int32_t>(item - itemTexts.begin()));
            return true;
        }
        int32_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc() || end != text.data() + text.size())
            return false;
        normalized = normalizedOfItemIndex(std::clamp(itemIndexOfValue(number), minimum, maximum));
        return true;
    }
    const std::vector<std::string>& getItemTexts() const override { return itemTexts; }

    T getValue() const override { return static_cast<T>(value); }
    void setValue(T newValue) override { storeValue(static_cast<int32_t>(newValue)); }

private:
    void requireIndexInRange(int32_t itemIndex) const {
        if (minimum > maximum || itemIndex < minimum || itemIndex > maximum)
            failProgrammingError("indexed parameter default outside its range");
    }

    int32_t itemIndexOfNormalized(double normalized) const {
        const double bounded = normalized > 0.0 ? std::min(normalized, 1.0) : 0.0; // NaN counts as 0
        return minimum + roundToInt(bounded * (maximum - minimum));
    }

    double normalizedOfItemIndex(int32_t itemIndex) const {
        return maximum == minimum ? 0.0 : static_cast<double>(itemIndex - minimum) / (maximum - minimum);
    }

    std::string textOfItemIndex(int32_t itemIndex) const {
        if (!itemTexts.empty()) {
            const int32_t position = itemIndex - minimum;
            if (position < 0 || position >= static_cast<int32_t>(itemTexts.size()))
                failProgrammingError("item index outside the value list");
            return itemTexts[static_cast<size_t>(position)];
        }
        return std::to_string(valueOfItemIndex(itemIndex));
    }

    // Without a table the value is clamped to the item range; with one any value between the
    // table's smallest and largest is kept, so a preset's value survives even if the table does
    // not list it, while garbage cannot leave that span.
    void storeValue(int32_t newValue) {
        if (valueTable.empty()) {
            newValue = std::clamp(newValue, minimum, maximum);
        } else {
            const auto [smallest, largest] = std::minmax_element(valueTable.begin(), valueTable.end());
            newValue = std::clamp(newValue, *smallest, *largest);
        }
        if (newValue == value)
            return;
        value = newValue;
        this->notifyValueChanged(static_cast<float>(value));
    }

    std::vector<std::string> itemTexts;
    int32_t minimum = 0;
    int32_t maximum;
    std::span<const int32_t> valueTable;
    int32_t indexOffset = 0;
    int32_t defaultValue;
    int32_t value;
};

// A continuous parameter. The normalised host value maps linearly onto [minimum, maximum] unless
// a pair of mapping functions is installed; the shown value is unit mapping * scale + offset.
class FloatPluginParameter : public TypedPluginParameter<float> {
public:
    using Mapping = double (*)(double);

    FloatPluginParameter(GenericParameterOwner& owner, std::string name, float minimum, float maximum,
                         float defaultValue, const FloatPluginParameterUnit* unit = nullptr,
                         std::string helpText = {});

    // Requires minimum <= default <= maximum; the value becomes the default.
    void setRange(float minimum, float maximum, float defaultValue);
    void setMapping(Mapping normalizedToPlain, Mapping plainToNormalized);
    void setDisplayTransform(float offset, float scale);
    void setUnit(const FloatPluginParameterUnit* newUnit) { unit = newUnit; }
    const FloatPluginParameterUnit* getUnit() const { return unit; }

    double plainToNormalized(double plain) const;
    double normalizedToPlain(double normalized) const;
    // The value as the user sees it (Hz for a log2-Hz frequency) and back.
    double plainToShown(double plain) const;
    double shownToPlain(double shown) const;

    double getNormalized() const override { return plainToNormalized(value); }
    void setNormalized(double normalized) override {
        setValue(static_cast<float>(normalizedToPlain(normalized)));
    }
    float plainOfNormalized(double normalized) const override {
        return static_cast<float>(normalizedToPlain(normalized));
    }
    double normalizedOfPlain(float plain) const override { return plainToNormalized(plain); }
    float getPlain() const override { return value; }
    void setPlain(float plain) override { setValue(plain); }
    double getDefaultNormalized() const override { return plainToNormalized(defaultValue); }
    float getDefaultPlain() const override { return defaultValue; }
    float getMinimum() const override { return minimum; }
    float getMaximum() const override { return maximum; }
    int32_t getNumSteps() const override { return 0; }

    std::string getText() const override { return textOfPlain(value); }
    std::string getTextForNormalized(double normalized) const override {
        return textOfPlain(normalizedToPlain(normalized));
    }
    bool parseText(std::string_view text, double& normalized) const override;

    float getValue() const override { return value; }
    // Clamps to the range; stores and notifies only a change larger than the float epsilon.
    void setValue(float plain) override;

private:
    std::string textOfPlain(double plain) const;

    Mapping toPlain = nullptr;
    Mapping toNormalized = nullptr;
    float displayOffset = 0.0f;
    float displayScale = 1.0f;
    const FloatPluginParameterUnit* unit;
    float defaultValue = 0.0f;
    float maximum = 0.0f;
    float minimum = 0.0f;
    float value = 0.0f;
};
