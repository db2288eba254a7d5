#pragma once

#include "plugin/PluginParameter.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The object that owns all parameters of a plug-in: it gives every parameter its global index
// (registration order, from 0), becomes its listener and receives its edit gestures.
class GenericParameterOwner : public PluginParameterListener {
public:
    virtual void registerParameter(AbstractPluginParameter& parameter) = 0;
    // The parameter with a global index, or null.
    virtual AbstractPluginParameter* lookupParameter(int32_t globalIndex) const = 0;
    virtual int32_t getParameterCount() const = 0;
    virtual void beginEdit(int32_t globalIndex) = 0;
    virtual void endEdit(int32_t globalIndex) = 0;
};

// An owner that only records what registers with it, for building a layout without a live
// plug-in. Value changes and edit gestures go nowhere.
class GenericParameterResponder : public GenericParameterOwner {
public:
    void registerParameter(AbstractPluginParameter& parameter) override;
    AbstractPluginParameter* lookupParameter(int32_t globalIndex) const override;
    int32_t getParameterCount() const override { return static_cast<int32_t>(parameters.size()); }
    void parameterValueChanged(int32_t, float) override {}
    void beginEdit(int32_t) override {}
    void endEdit(int32_t) override {}

private:
    std::vector<AbstractPluginParameter*> parameters;
};

// An owner that passes every operation but registration on to another owner unchanged.
class ForwardingParameterOwner : public GenericParameterOwner {
public:
    explicit ForwardingParameterOwner(GenericParameterOwner& target) : target(target) {}

    AbstractPluginParameter* lookupParameter(int32_t globalIndex) const override {
        return target.lookupParameter(globalIndex);
    }
    int32_t getParameterCount() const override { return target.getParameterCount(); }
    void parameterValueChanged(int32_t globalIndex, float plainValue) override {
        target.parameterValueChanged(globalIndex, plainValue);
    }
    void beginEdit(int32_t globalIndex) override { target.beginEdit(globalIndex); }
    void endEdit(int32_t globalIndex) override { target.endEdit(globalIndex); }

protected:
    GenericParameterOwner& target;
};

// A flat list of parameters, for presets and snapshots.
class ParameterCollection {
public:
    virtual ~ParameterCollection() = default;
    // Appends and returns the new position.
    virtual int32_t add(AbstractPluginParameter& parameter);

    int32_t size() const { return static_cast<int32_t>(parameters.size()); }
    AbstractPluginParameter& at(int32_t position) const {
        return *parameters.at(static_cast<size_t>(position));
    }

private:
    std::vector<AbstractPluginParameter*> parameters;
};

// The parameters of one logical unit (a band, the analyzer). The concrete set holds them as
// members; the set registers each with the plug-in's owner and passes every owner operation on
// unchanged, so a parameter created with the set as owner behaves as if created with the plug-in.
class PluginParameterSet : public ForwardingParameterOwner {
public:
    PluginParameterSet(GenericParameterOwner& owner, uint32_t setNumber, std::string name);
    PluginParameterSet(const PluginParameterSet&) = delete;
    PluginParameterSet& operator=(const PluginParameterSet&) = delete;

    void addParameter(AbstractPluginParameter& parameter);

    int32_t getNumParameters() const { return static_cast<int32_t>(parameters.size()); }
    AbstractPluginParameter& getParameter(int32_t positionInSet) const {
        return *parameters.at(static_cast<size_t>(positionInSet));
    }
    uint32_t getIndex() const { return setNumber; }
    const std::string& getName() const { return name; }
    // False when empty; -1 asks about any parameter.
    bool containsParameterIndex(int32_t globalIndex) const;

    void registerParameter(AbstractPluginParameter& parameter) override { addParameter(parameter); }

private:
    uint32_t setNumber;
    std::string name;
    std::vector<AbstractPluginParameter*> parameters;
};

// Numbered copies of one set, occupying one contiguous run of global indexes, set after set.
class AbstractParameterSetArray {
public:
    virtual ~AbstractParameterSetArray() = default;
    virtual int32_t getNumSets() const = 0;
    virtual PluginParameterSet& getSet(int32_t setNumber) const = 0;

    // All ones when there are no sets or the first set is empty.
    uint32_t getFirstParameterIndex() const;
    int32_t getNumParametersPerSet() const;
    // The set holding a global index, or -1.
    int32_t getSetIndexForParameter(int32_t globalIndex) const;
    // False when the array has no parameters; -1 asks about any parameter.
    bool containsParameterIndex(int32_t globalIndex) const;
    void addParametersTo(ParameterCollection& collection) const;
    void resetToDefaults() const;

private:
    bool hasParameters() const { return getNumSets() > 0 && getSet(0).getNumParameters() > 0; }
};

// Owns n sets of type T, numbered 0..n-1 and named prefix + 1..n. T is constructed from
// (owner, set number, name).
template <typename T>
class ParameterSetArray : public AbstractParameterSetArray {
public:
    ParameterSetArray(GenericParameterOwner& owner, int32_t count, const std::string& namePrefix) {
        sets.reserve(static_cast<size_t>(count));
        for (int32_t number = 0; number < count; ++number)
            sets.push_back(std::make_unique<T>(owner, static_cast<uint32_t>(number),
                                               namePrefix + std::to_string(number + 1)));
    }

    int32_t getNumSets() const override { return static_cast<int32_t>(sets.size()); }
    T& getSet(int32_t setNumber) const override { return *sets.at(static_cast<size_t>(setNumber)); }

private:
    std::vector<std::unique_ptr<T>> sets;
};
