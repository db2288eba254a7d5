#include "plugin/ParameterSets.h"

void GenericParameterResponder::registerParameter(AbstractPluginParameter& parameter) {
    parameter.setIndex(static_cast<int32_t>(parameters.size()));
    parameter.setListener(this);
    parameters.push_back(&parameter);
}

AbstractPluginParameter* GenericParameterResponder::lookupParameter(int32_t globalIndex) const {
    if (globalIndex < 0 || globalIndex >= getParameterCount())
        return nullptr;
    return parameters[static_cast<size_t>(globalIndex)];
}

int32_t ParameterCollection::add(AbstractPluginParameter& parameter) {
    parameters.push_back(&parameter);
    return size() - 1;
}

PluginParameterSet::PluginParameterSet(GenericParameterOwner& owner_, uint32_t setNumber_, std::string name_)
    : ForwardingParameterOwner(owner_), setNumber(setNumber_), name(std::move(name_)) {}

void PluginParameterSet::addParameter(AbstractPluginParameter& parameter) {
    parameters.push_back(&parameter);
    target.registerParameter(parameter);
}

bool PluginParameterSet::containsParameterIndex(int32_t globalIndex) const {
    if (parameters.empty())
        return false;
    if (globalIndex == -1)
        return true;
    return parameters.front()->getIndex() <= globalIndex && globalIndex <= parameters.back()->getIndex();
}

uint32_t AbstractParameterSetArray::getFirstParameterIndex() const {
    if (!hasParameters())
        return static_cast<uint32_t>(-1);
    return static_cast<uint32_t>(getSet(0).getParameter(0).getIndex());
}

int32_t AbstractParameterSetArray::getNumParametersPerSet() const {
    return getNumSets() > 0 ? getSet(0).getNumParameters() : 0;
}

int32_t AbstractParameterSetArray::getSetIndexForParameter(int32_t globalIndex) const {
    if (!hasParameters())
        return -1;
    // 64 bits: any host-supplied index minus the first one fits. An index below the array is
    // outside it (truncating division would put it in set 0).
    const int64_t offset = int64_t{globalIndex} - getSet(0).getParameter(0).getIndex();
    const int64_t setIndex = offset >= 0 ? offset / getNumParametersPerSet() : -1;
    return setIndex < getNumSets() ? static_cast<int32_t>(setIndex) : -1;
}

bool AbstractParameterSetArray::containsParameterIndex(int32_t globalIndex) const {
    if (!hasParameters())
        return false;
    if (globalIndex == -1)
        return true;
    const PluginParameterSet& last = getSet(getNumSets() - 1);
    const int32_t lastIndex = last.getParameter(last.getNumParameters() - 1).getIndex();
    return static_cast<int32_t>(getFirstParameterIndex()) <= globalIndex && globalIndex <= lastIndex;
}

void AbstractParameterSetArray::addParametersTo(ParameterCollection& collection) const {
    for (int32_t set = 0; set < getNumSets(); ++set)
        for (int32_t position = 0; position < getSet(set).getNumParameters(); ++position)
            collection.add(getSet(set).getParameter(position));
}

void AbstractParameterSetArray::resetToDefaults() const {
    for (int32_t set = 0; set < getNumSets(); ++set)
        for (int32_t position = 0; position < getSet(set).getNumParameters(); ++position)
            getSet(set).getParameter(position).resetToDefault();
}
