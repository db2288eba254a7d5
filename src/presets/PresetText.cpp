#include "presets/PresetText.h"

#include "foundation/SettingSerializer.h"

namespace {

constexpr std::string_view kBlanks = " \t";

bool isBlank(char character) {
    return character == ' ' || character == '\t';
}

std::string_view trimTrailingBlanks(std::string_view text) {
    const std::size_t end = text.find_last_not_of(kBlanks);
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
}

std::string_view trimLeadingBlanks(std::string_view text) {
    const std::size_t start = text.find_first_not_of(kBlanks);
    return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// Reverses the writer's escapes up to an unescaped terminator (or the end when it is 0). An
// unknown escape keeps its backslash, so text written by hand survives.
std::string unescape(std::string_view text, char terminator) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char character = text[i];
        if (terminator != 0 && character == terminator)
            break;
        if (character != '\\' || i + 1 == text.size()) {
            result += character;
            continue;
        }
        switch (const char escaped = text[++i]) {
        case 'n':
            result += '\n';
            break;
        case 'r':
            result += '\r';
            break;
        case '"':
        case '\\':
            result += escaped;
            break;
        default:
            result += '\\';
            result += escaped;
        }
    }
    return result;
}

std::string parseValue(std::string_view raw) {
    const std::string_view text = trimLeadingBlanks(raw);
    if (!text.empty() && text.front() == '"')
        return unescape(text.substr(1), '"');
    return unescape(trimTrailingBlanks(text), 0);
}

std::string formatValue(std::string_view value) {
    std::string escaped;
    escaped.reserve(value.size() + 2);
    for (const char character : value) {
        switch (character) {
        case '\n':
            escaped += "\\n";
            break;
        case '\r':
            escaped += "\\r";
            break;
        case '"':
            escaped += "\\\"";
            break;
        case '\\':
            escaped += "\\\\";
            break;
        default:
            escaped += character;
        }
    }
    if (value.find_first_of(kBlanks) == std::string_view::npos)
        return escaped;
    return '"' + escaped + '"';
}

} // namespace

PresetTextReader::Status PresetTextReader::next() {
    while (std::getline(stream, line)) {
        std::string_view text(line);
        // Files edited on other systems may end lines with a carriage return as well.
        if (!text.empty() && text.back() == '\r')
            text.remove_suffix(1);
        text = trimLeadingBlanks(text);
        if (text.empty() || text.front() == ';')
            continue;
        return parseLine(text);
    }
    return stream.bad() ? Status::ReadError : Status::EndOfFile;
}

PresetTextReader::Status PresetTextReader::parseLine(std::string_view text) {
    if (text.front() == '[') {
        const std::size_t close = text.find(']');
        if (close == std::string_view::npos)
            return Status::MissingBracket;
        if (!trimLeadingBlanks(text.substr(close + 1)).empty())
            return Status::TextAfterBracket;
        section = trimLeadingBlanks(trimTrailingBlanks(text.substr(1, close - 1)));
        return Status::Section;
    }
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        return Status::MissingEquals;
    key = trimTrailingBlanks(text.substr(0, equals));
    value = parseValue(text.substr(equals + 1));
    return Status::Entry;
}

void PresetTextWriter::writeSection(std::string_view name) {
    if (!atStart)
        stream << '\n';
    stream << '[' << name << "]\n";
    atStart = false;
}

void PresetTextWriter::writeEntry(std::string_view key, std::string_view value) {
    writeRawEntry(key, formatValue(value));
}

void PresetTextWriter::writeNumber(std::string_view key, double number) {
    writeRawEntry(key, formatDouble(number));
}

void PresetTextWriter::writeInteger(std::string_view key, int64_t number) {
    writeRawEntry(key, std::to_string(number));
}

void PresetTextWriter::writeRawEntry(std::string_view key, std::string_view text) {
    if (!isWritableKey(key))
        return;
    stream << key << '=' << text << '\n';
    atStart = false;
}

bool PresetTextWriter::isWritableKey(std::string_view key) {
    return !key.empty() && key.find_first_of("=\n\r") == std::string_view::npos && !isBlank(key.front()) &&
           !isBlank(key.back()) && key.front() != '[' && key.front() != ';';
}
