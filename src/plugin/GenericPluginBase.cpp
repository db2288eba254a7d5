#include "plugin/GenericPluginBase.h"

AbstractPluginParameter* GenericPluginBase::getParameter(int32_t index) const {
    if (index < kAuxiliaryParameterBase)
        return lookupParameter(index);
    const int32_t auxiliaryIndex = index - kAuxiliaryParameterBase;
    if (auxiliaryIndex >= getNumAuxiliaryParameters())
        return nullptr;
    return auxiliary.parameters[static_cast<size_t>(auxiliaryIndex)];
}

void GenericPluginBase::AuxiliaryOwner::registerParameter(AbstractPluginParameter& parameter) {
    parameter.setIndex(kAuxiliaryParameterBase + static_cast<int32_t>(parameters.size()));
    parameter.setListener(&base);
    parameters.push_back(&parameter);
}
