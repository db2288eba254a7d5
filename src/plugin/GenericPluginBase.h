#pragma once

#include "plugin/ParameterSets.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// The static description of a product. The host adapters read it; the product fills it in
// before and after building its parameters.
struct GenericPluginInfo {
    uint32_t formatNumber = 0;
    uint32_t flags = 0;
    std::string presetSignature;
    std::string productName;
    std::map<uint32_t, uint32_t> keyedValues;
    // Three values the product sets once its parameters exist; their meaning belongs to the host
    // adapters, which read them in this field order.
    uint32_t layoutValue0 = 0;
    uint32_t layoutValue1 = 0;
    uint32_t layoutValue2 = 0;
};

// What the plug-in model and the processor share: the description and the parameter registry.
// Indexes from kAuxiliaryParameterBase on address non-host parameters: those created with
// getAuxiliaryOwner() as their owner. They report to this object like host parameters do.
class GenericPluginBase : public GenericParameterResponder, public GenericPluginInfo {
public:
    enum class MidiState : int32_t { Enabled = 0, Disabled = 1 };

    static constexpr int32_t kAuxiliaryParameterBase = 0x100000;

    GenericPluginBase() = default;
    GenericPluginBase(const GenericPluginBase&) = delete;
    GenericPluginBase& operator=(const GenericPluginBase&) = delete;

    int32_t getNumParameters() const { return getParameterCount(); }
    // Host parameters by index, auxiliary ones from kAuxiliaryParameterBase on; null past either list.
    AbstractPluginParameter* getParameter(int32_t index) const;

    GenericParameterOwner& getAuxiliaryOwner() { return auxiliary; }
    int32_t getNumAuxiliaryParameters() const { return static_cast<int32_t>(auxiliary.parameters.size()); }

private:
    // Numbers auxiliary parameters from kAuxiliaryParameterBase; everything else goes to the base.
    class AuxiliaryOwner : public ForwardingParameterOwner {
    public:
        explicit AuxiliaryOwner(GenericPluginBase& base) : ForwardingParameterOwner(base), base(base) {}
        void registerParameter(AbstractPluginParameter& parameter) override;
        AbstractPluginParameter* lookupParameter(int32_t globalIndex) const override {
            return base.getParameter(globalIndex);
        }

        GenericPluginBase& base;
        std::vector<AbstractPluginParameter*> parameters;
    };

    AuxiliaryOwner auxiliary{*this};
};
