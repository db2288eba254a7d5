#include "plugin/PluginParameter.h"

#include "plugin/ParameterSets.h"

#include <cmath>

AbstractPluginParameter::AbstractPluginParameter(GenericParameterOwner& owner_, std::string name_,
                                                 std::string helpText_, bool automatable_)
    : owner(&owner_), automatable(automatable_), name(std::move(name_)), helpText(std::move(helpText_)) {
    owner->registerParameter(*this);
}

const std::vector<std::string>& AbstractPluginParameter::getItemTexts() const {
    static const std::vector<std::string> none;
    return none;
}

void AbstractPluginParameter::beginEdit() {
    owner->beginEdit(index);
}

void AbstractPluginParameter::endEdit() {
    owner->endEdit(index);
}

std::vector<std::string> splitItemList(std::string_view itemList) {
    std::vector<std::string> items;
    if (itemList.empty())
        return items;
    for (size_t start = 0;;) {
        const size_t comma = itemList.find(',', start);
        items.emplace_back(itemList.substr(start, comma - start));
        if (comma == std::string_view::npos)
            return items;
        start = comma + 1;
    }
}

FloatPluginParameter::FloatPluginParameter(GenericParameterOwner& owner, std::string name, float minimum_,
                                           float maximum_, float defaultValue_,
                                           const FloatPluginParameterUnit* unit_, std::string helpText)
    : TypedPluginParameter<float>(owner, std::move(name), std::move(helpText)), unit(unit_) {
    setRange(minimum_, maximum_, defaultValue_);
}

void FloatPluginParameter::setRange(float minimum_, float maximum_, float defaultValue_) {
    if (!(minimum_ <= defaultValue_ && defaultValue_ <= maximum_))
        failProgrammingError("float parameter default outside its range");
    minimum = minimum_;
    maximum = maximum_;
    defaultValue = defaultValue_;
    value = defaultValue_;
}

void FloatPluginParameter::setMapping(Mapping normalizedToPlain_, Mapping plainToNormalized_) {
    toPlain = normalizedToPlain_;
    toNormalized = plainToNormalized_;
}

void FloatPluginParameter::setDisplayTransform(float offset, float scale) {
    displayOffset = offset;
    displayScale = scale;
}

double FloatPluginParameter::plainToNormalized(double plain) const {
    if (toNormalized)
        return toNormalized(plain);
    return maximum == minimum ? 0.0 : (plain - minimum) / (maximum - minimum);
}

double FloatPluginParameter::normalizedToPlain(double normalized) const {
    if (toPlain)
        return toPlain(normalized);
    return normalized * (maximum - minimum) + minimum;
}

double FloatPluginParameter::plainToShown(double plain) const {
    const double mapped = unit ? unit->toShown(plain) : plain;
    return mapped * displayScale + displayOffset;
}

double FloatPluginParameter::shownToPlain(double shown) const {
    const double mapped = (shown - displayOffset) / displayScale;
    return unit ? unit->fromShown(mapped) : mapped;
}

void FloatPluginParameter::setValue(float plain) {
    const float clamped = plain < minimum ? minimum : std::min(plain, maximum);
    if (!(std::fabs(clamped - value) > kFloatEpsilon))
        return;
    value = clamped;
    notifyValueChanged(value);
}

std::string FloatPluginParameter::textOfPlain(double plain) const {
    const double shown = plainToShown(plain);
    return unit ? unit->format(shown) : formatNumber("*3f", shown);
}

bool FloatPluginParameter::parseText(std::string_view text, double& normalized) const {
    const double shownAtMinimum = plainToShown(minimum);
    const double shownAtMaximum = plainToShown(maximum);
    const double low = std::min(shownAtMinimum, shownAtMaximum);
    const double high = std::max(shownAtMinimum, shownAtMaximum);

    std::optional<double> shown;
    if (unit)
        shown = unit->parse(text, low, high);
    else if (auto typed = parseNumberWithSuffix(text, {}))
        shown = typed->value;
    if (!shown)
        return false;

    const double parsed = plainToNormalized(shownToPlain(*shown));
    if (std::isnan(parsed))
        return false;
    normalized = std::clamp(parsed, 0.0, 1.0);
    return true;
}
