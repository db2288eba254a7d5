#include "ParamsCommand.h"

#include "plugin/GenericPluginBase.h"
#include "plugin/eq/OndrelParameters.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ostream>

namespace {

struct ParameterRow {
    int32_t index;
    std::string name;
    std::string kind;
    std::string minimum;
    std::string maximum;
    std::string defaultValue;
    std::string defaultText;
    std::string unit; // empty when the parameter has none
    std::vector<std::string> values;
    std::string help;
};

std::string shortestText(float value) {
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

ParameterRow describe(const AbstractPluginParameter& parameter) {
    ParameterRow row;
    row.index = parameter.getIndex();
    row.name = parameter.getName();
    row.kind = parameter.getNumSteps() == 0 ? "float" : "indexed";
    row.minimum = shortestText(parameter.getMinimum());
    row.maximum = shortestText(parameter.getMaximum());
    row.defaultValue = shortestText(parameter.getDefaultPlain());
    row.defaultText = parameter.getTextForNormalized(parameter.getDefaultNormalized());
    if (const auto* floating = dynamic_cast<const FloatPluginParameter*>(&parameter);
        floating && floating->getUnit())
        row.unit = floating->getUnit()->getName();
    row.values = parameter.getItemTexts();
    row.help = parameter.getHelpText();
    return row;
}

std::vector<ParameterRow> describeLayout() {
    GenericPluginBase owner;
    const OndrelParameters layout(owner);
    std::vector<ParameterRow> rows;
    for (int32_t index = 0; index < owner.getNumParameters(); ++index)
        rows.push_back(describe(*owner.getParameter(index)));
    return rows;
}

std::string joined(const std::vector<std::string>& items, const char* separator) {
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : separator) + item;
    return text;
}

std::string shortened(std::string text, size_t limit) {
    if (text.size() > limit)
        text = text.substr(0, limit - 3) + "...";
    return text;
}

// Value lists show the default item's text alone; numbers show the value and its text.
std::string defaultCell(const ParameterRow& row) {
    if (!row.values.empty())
        return row.defaultText;
    return row.defaultValue == row.defaultText ? row.defaultValue
                                               : row.defaultValue + " (" + row.defaultText + ")";
}

void writeTable(const std::vector<ParameterRow>& rows, std::ostream& out) {
    constexpr size_t kValuesWidth = 28;
    std::vector<std::array<std::string, 7>> cells{
        {"Index", "Name", "Kind", "Range", "Default", "Unit", "Values"}};
    for (const ParameterRow& row : rows)
        cells.push_back({std::to_string(row.index), row.name, row.kind, row.minimum + " .. " + row.maximum,
                         defaultCell(row), row.unit.empty() ? "-" : row.unit,
                         shortened(joined(row.values, ","), kValuesWidth)});

    std::array<size_t, 7> widths{};
    for (const auto& line : cells)
        for (size_t column = 0; column < widths.size(); ++column)
            widths[column] = std::max(widths[column], line[column].size());

    for (const auto& line : cells) {
        std::string text;
        for (size_t column = 0; column + 1 < line.size(); ++column)
            text += line[column] + std::string(widths[column] - line[column].size() + 2, ' ');
        text += line.back();
        text.erase(text.find_last_not_of(' ') + 1);
        out << text << '\n';
    }
}

std::string jsonString(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
            quoted += "\\\"";
            break;
        case '\\':
            quoted += "\\\\";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\t':
            quoted += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                std::array<char, 8> escaped{};
                std::snprintf(escaped.data(), escaped.size(), "\\u%04x", c);
                quoted += escaped.data();
            } else {
                quoted += c;
            }
        }
    }
    return quoted + "\"";
}

void writeJson(const std::vector<ParameterRow>& rows, std::ostream& out) {
    out << "[\n";
    for (size_t position = 0; position < rows.size(); ++position) {
        const ParameterRow& row = rows[position];
        std::vector<std::string> values;
        for (const std::string& value : row.values)
            values.push_back(jsonString(value));
        out << "  {\"index\": " << row.index << ", \"name\": " << jsonString(row.name)
            << ", \"kind\": " << jsonString(row.kind) << ", \"minimum\": " << row.minimum
            << ", \"maximum\": " << row.maximum << ", \"default\": " << row.defaultValue
            << ", \"defaultText\": " << jsonString(row.defaultText)
            << ", \"unit\": " << (row.unit.empty() ? "null" : jsonString(row.unit)) << ", \"values\": ["
            << joined(values, ", ") << "], \"help\": " << jsonString(row.help) << "}"
            << (position + 1 < rows.size() ? "," : "") << '\n';
    }
    out << "]\n";
}

} // namespace

int runParamsCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    bool json = false;
    for (const std::string& argument : arguments) {
        if (argument != "--json") {
            err << "ondrel params: unknown option '" << argument << "'\n";
            return 2;
        }
        json = true;
    }
    const std::vector<ParameterRow> rows = describeLayout();
    if (json)
        writeJson(rows, out);
    else
        writeTable(rows, out);
    return 0;
}
