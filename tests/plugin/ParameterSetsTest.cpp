#include "plugin/ParameterSets.h"
#include "plugin/GenericPluginBase.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace {

// A set of a fixed number of float parameters named "<set name> P<k>".
template <int Count>
class FloatSet : public PluginParameterSet {
public:
    FloatSet(GenericParameterOwner& owner, uint32_t number, std::string name)
        : PluginParameterSet(owner, number, std::move(name)) {
        for (int k = 0; k < Count; ++k)
            parameters.push_back(std::make_unique<FloatPluginParameter>(
                *this, getName() + " P" + std::to_string(k), 0.0f, 1.0f, 0.25f));
    }

private:
    std::vector<std::unique_ptr<FloatPluginParameter>> parameters;
};

// Records what reaches the plug-in's owner.
class RecordingOwner : public GenericPluginBase {
public:
    void parameterValueChanged(int32_t index, float) override { changes.push_back(index); }
    void beginEdit(int32_t index) override { edits.push_back(index); }
    void endEdit(int32_t index) override { edits.push_back(-100 - index); }

    std::vector<int32_t> changes;
    std::vector<int32_t> edits;
};

} // namespace

TEST(ParameterSetArray, TwentyFourSetsOfTwentyThreeFromIndexZero) {
    GenericParameterResponder owner;
    ParameterSetArray<FloatSet<23>> bands(owner, 24, "Band ");
    EXPECT_EQ(owner.getParameterCount(), 552);
    EXPECT_EQ(bands.getFirstParameterIndex(), 0u);
    EXPECT_EQ(bands.getSetIndexForParameter(22), 0);
    EXPECT_EQ(bands.getSetIndexForParameter(23), 1);
    EXPECT_EQ(bands.getSetIndexForParameter(551), 23);
    EXPECT_EQ(bands.getSetIndexForParameter(552), -1);
    EXPECT_EQ(bands.getSetIndexForParameter(-1), -1);
    EXPECT_TRUE(bands.containsParameterIndex(-1));
    EXPECT_TRUE(bands.containsParameterIndex(551));
    EXPECT_FALSE(bands.containsParameterIndex(552));
    EXPECT_FALSE(bands.containsParameterIndex(-2));

    EXPECT_EQ(bands.getSet(23).getName(), "Band 24");
    EXPECT_EQ(bands.getSet(23).getIndex(), 23u);
    EXPECT_EQ(bands.getSet(1).getParameter(0).getName(), "Band 2 P0");
    EXPECT_EQ(owner.lookupParameter(551), &bands.getSet(23).getParameter(22));
}

TEST(ParameterSetArray, ArrayAfterOtherParametersStartsAtItsFirstIndex) {
    GenericParameterResponder owner;
    FloatSet<5> leading(owner, 0, "Lead");
    ParameterSetArray<FloatSet<3>> sets(owner, 4, "S");
    EXPECT_EQ(sets.getFirstParameterIndex(), 5u);
    EXPECT_EQ(sets.getSetIndexForParameter(4), -1); // just below the array
    EXPECT_EQ(sets.getSetIndexForParameter(5), 0);
    EXPECT_EQ(sets.getSetIndexForParameter(8), 1);
    EXPECT_EQ(sets.getSetIndexForParameter(16), 3);
    EXPECT_EQ(sets.getSetIndexForParameter(17), -1);
    // Host ids far outside the layout (special ids, garbage) are simply outside.
    EXPECT_EQ(sets.getSetIndexForParameter(INT32_MIN), -1);
    EXPECT_EQ(sets.getSetIndexForParameter(INT32_MAX), -1);
    EXPECT_TRUE(sets.containsParameterIndex(16));
    EXPECT_FALSE(sets.containsParameterIndex(4) || sets.containsParameterIndex(17));

    const PluginParameterSet& second = sets.getSet(1);
    EXPECT_TRUE(second.containsParameterIndex(8) && second.containsParameterIndex(10));
    EXPECT_FALSE(second.containsParameterIndex(7) || second.containsParameterIndex(11));
    EXPECT_TRUE(second.containsParameterIndex(-1));
}

TEST(ParameterSetArray, EmptinessIsTestedFirst) {
    GenericParameterResponder owner;
    FloatSet<0> emptySet(owner, 0, "Empty");
    EXPECT_FALSE(emptySet.containsParameterIndex(-1));

    ParameterSetArray<FloatSet<2>> noSets(owner, 0, "None");
    EXPECT_EQ(noSets.getFirstParameterIndex(), 0xFFFFFFFFu);
    EXPECT_EQ(noSets.getSetIndexForParameter(0), -1);
    EXPECT_FALSE(noSets.containsParameterIndex(-1));

    ParameterSetArray<FloatSet<0>> emptySets(owner, 3, "Hollow");
    EXPECT_EQ(emptySets.getFirstParameterIndex(), 0xFFFFFFFFu);
    EXPECT_EQ(emptySets.getSetIndexForParameter(0), -1);
    EXPECT_FALSE(emptySets.containsParameterIndex(-1));
}

TEST(ParameterSetArray, CollectsInOrderAndResetsToDefaults) {
    RecordingOwner owner;
    FloatSet<1> leading(owner, 0, "Lead");
    ParameterSetArray<FloatSet<3>> sets(owner, 2, "S");

    ParameterCollection collection;
    EXPECT_EQ(collection.add(leading.getParameter(0)), 0);
    sets.addParametersTo(collection);
    ASSERT_EQ(collection.size(), 7);
    for (int32_t position = 0; position < collection.size(); ++position)
        EXPECT_EQ(collection.at(position).getIndex(), position);

    sets.getSet(0).getParameter(1).setPlain(0.75f);
    sets.getSet(1).getParameter(2).setPlain(1.0f);
    leading.getParameter(0).setPlain(0.5f);
    owner.changes.clear();
    sets.resetToDefaults();
    EXPECT_EQ(owner.changes, (std::vector<int32_t>{2, 6}));
    EXPECT_EQ(sets.getSet(1).getParameter(2).getPlain(), 0.25f);
    EXPECT_EQ(leading.getParameter(0).getPlain(), 0.5f);
}

TEST(ParameterSet, ForwardsEverythingToThePluginOwner) {
    RecordingOwner owner;
    FloatSet<2> first(owner, 0, "A");
    FloatSet<2> second(owner, 1, "B");
    AbstractPluginParameter& parameter = second.getParameter(1);
    EXPECT_EQ(parameter.getIndex(), 3);
    EXPECT_EQ(&parameter.getOwner(), &second);

    parameter.beginEdit();
    parameter.setNormalized(1.0);
    parameter.endEdit();
    EXPECT_EQ(owner.edits, (std::vector<int32_t>{3, -103}));
    EXPECT_EQ(owner.changes, (std::vector<int32_t>{3}));

    EXPECT_EQ(second.lookupParameter(0), &first.getParameter(0));
    EXPECT_TRUE(parameter.hasIndex(3));
    EXPECT_TRUE(parameter.hasIndex(-1));
    EXPECT_FALSE(parameter.hasIndex(2));
}

TEST(GenericPluginBase, AuxiliaryParametersLiveAboveTheHostRange) {
    RecordingOwner owner;
    FloatSet<2> host(owner, 0, "Host");
    FloatPluginParameter hidden(owner.getAuxiliaryOwner(), "Hidden", 0.0f, 1.0f, 0.0f);
    FloatPluginParameter hiddenToo(owner.getAuxiliaryOwner(), "Hidden Too", 0.0f, 1.0f, 0.0f);

    EXPECT_EQ(owner.getNumParameters(), 2);
    EXPECT_EQ(owner.getParameter(0x100000), &hidden);
    EXPECT_EQ(owner.getParameter(0x100001), &hiddenToo);
    EXPECT_EQ(owner.getParameter(0x100002), nullptr);
    EXPECT_EQ(owner.getParameter(1), &host.getParameter(1));
    EXPECT_EQ(owner.getParameter(2), nullptr);
    EXPECT_EQ(owner.getParameter(-1), nullptr);

    hiddenToo.setPlain(0.5f);
    EXPECT_EQ(owner.changes, (std::vector<int32_t>{0x100001}));
}
