#pragma once

#include "plugin/ParameterSets.h"
#include "plugin/eq/EQTypes.h"
#include "plugin/eq/FilterShape.h"

#include <array>
#include <cmath>

// Frequencies are stored as log2(Hz).
inline const float kLog2Of10Hz = std::log2(10.0f);
inline const float kLog2Of1kHz = std::log2(1000.0f);
inline const float kLog2Of20kHz = std::log2(20000.0f);
inline const float kLog2Of30kHz = std::log2(30000.0f);

// The 23 parameters of one band, named "Band N" + suffix, in host order.
class EQParameterSet : public PluginParameterSet {
public:
    static constexpr int32_t kNumParameters = 23;

    class BandEnabledParameter : public IndexedPluginParameter<bool> {
    public:
        BandEnabledParameter(GenericParameterOwner& owner, std::string name, std::string helpText);
    };

    // Stores the FilterShape value; hosts and menus see the item index (Bell = item 0 = value 7).
    class ShapeParameter : public IndexedPluginParameter<FilterShape> {
    public:
        static constexpr std::array<int32_t, 10> kShapeOfItem{7, 2, 3, 5, 0, 10, 8, 6, 12, 11};

        ShapeParameter(GenericParameterOwner& owner, std::string name, std::string helpText);
        int32_t getItemGroup(int32_t itemIndex) const override;
    };

    // Stores the item index; the typed value is the speaker set the item selects.
    class SpeakersParameter : public IndexedPluginParameter<chl::SpeakerSet> {
    public:
        SpeakersParameter(GenericParameterOwner& owner, std::string name, std::string helpText);
        chl::SpeakerSet getValue() const override { return chl::speakerSetForItem(getItemIndex()); }
        void setValue(chl::SpeakerSet set) override;
    };

    EQParameterSet(GenericParameterOwner& owner, uint32_t setNumber, std::string name);

    // " Used" and " Enabled".
    bool isActive() const;
    // Active, dynamics enabled and a non-zero dynamic range.
    bool isDynamic() const;
    // Used, a shape with gain, a non-zero dynamic range and spectral processing switched on.
    bool isSpectral() const;
    // Whether the band needs the dynamic (detector) processing path.
    bool needsDynamicPath() const { return isDynamic() || isSpectral(); }
    FilterShape getShape() const { return shape.getValue(); }
    bool shapeHasGain() const { return hasGain(getShape()); }
    // Flat Tilt is the one shape whose design ignores Q.
    bool shapeHasQ() const { return getShape() != FilterShape::FlatTilt; }

    IndexedPluginParameter<bool> used;
    BandEnabledParameter enabled;
    FloatPluginParameter frequency;
    FloatPluginParameter gain;
    FloatPluginParameter q;
    ShapeParameter shape;
    FloatPluginParameter slope;
    IndexedPluginParameter<StereoPlacement> stereoPlacement;
    SpeakersParameter speakers;
    FloatPluginParameter dynamicRange;
    IndexedPluginParameter<bool> dynamicsEnabled;
    IndexedPluginParameter<bool> dynamicsAuto;
    FloatPluginParameter threshold;
    FloatPluginParameter attack;
    FloatPluginParameter release;
    IndexedPluginParameter<bool> externalSideChain;
    IndexedPluginParameter<SideChainFiltering> sideChainFiltering;
    FloatPluginParameter sideChainLowFrequency;
    FloatPluginParameter sideChainHighFrequency;
    IndexedPluginParameter<bool> sideChainAudition;
    IndexedPluginParameter<bool> spectralEnabled;
    FloatPluginParameter spectralDensity;
    IndexedPluginParameter<bool> solo;

private:
    bool hasDynamicRange() const { return std::fabs(dynamicRange.getValue()) > kFloatEpsilon; }
};

// The 24 bands, "Band 1" to "Band 24".
class EQParameterSetArray : public ParameterSetArray<EQParameterSet> {
public:
    static constexpr int32_t kNumBands = 24;
    explicit EQParameterSetArray(GenericParameterOwner& owner);
};

// A band's parameters added after the original layout, kept at the end of the host order.
class EQParameterSetExtension : public PluginParameterSet {
public:
    EQParameterSetExtension(GenericParameterOwner& owner, uint32_t setNumber, std::string name);

    IndexedPluginParameter<bool> spectralTilt;
};

class EQParameterSetExtensionArray : public ParameterSetArray<EQParameterSetExtension> {
public:
    explicit EQParameterSetExtensionArray(GenericParameterOwner& owner);
};

class AnalyzerParameterSet : public PluginParameterSet {
public:
    explicit AnalyzerParameterSet(GenericParameterOwner& owner);

    IndexedPluginParameter<bool> showPreProcessing;
    IndexedPluginParameter<bool> showPostProcessing;
    IndexedPluginParameter<bool> showExternalSpectrum;
    // Instance number of the source instance; -1 for none.
    IndexedPluginParameter<int32_t> externalSpectrum;
    IndexedPluginParameter<AnalyzerRange> range;
    IndexedPluginParameter<AnalyzerResolution> resolution;
    IndexedPluginParameter<AnalyzerSpeed> speed;
    IndexedPluginParameter<AnalyzerTilt> tilt;
    IndexedPluginParameter<bool> freeze;
    IndexedPluginParameter<bool> showCollisions;
    IndexedPluginParameter<bool> spectrumGrab;
};

// The output pan, -1 (left or mid) to 1 (right or side).
class StereoPanParameter : public FloatPluginParameter {
public:
    StereoPanParameter(GenericParameterOwner& owner, std::string name);
};
