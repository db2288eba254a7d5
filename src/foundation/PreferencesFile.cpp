#include "foundation/PreferencesFile.h"

#include "foundation/AtomicFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

// Preferences are a few kilobytes; anything far larger is not a preferences file.
constexpr std::uintmax_t kMaximumFileSize = 4 * 1024 * 1024;

bool isControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

void appendEscaped(std::string& out, std::string_view text) {
    for (const char character : text) {
        switch (character) {
        case '\\':
            out += "\\\\";
            break;
        case '"':
            out += "\\\"";
            break;
        case '=':
            out += "\\=";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (isControl(character)) {
                char hex[5];
                std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(character));
                out += hex;
            } else {
                out += character;
            }
        }
    }
}

int hexDigit(char character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    return -1;
}

// Reads escaped text from position up to an unescaped terminator, leaving position after it.
std::optional<std::string> readEscaped(std::string_view line, std::size_t& position, char terminator) {
    std::string text;
    while (position < line.size()) {
        const char character = line[position++];
        if (character == terminator)
            return text;
        if (character != '\\') {
            text += character;
            continue;
        }
        if (position >= line.size())
            return std::nullopt;
        const char escaped = line[position++];
        switch (escaped) {
        case '\\':
        case '"':
        case '=':
            text += escaped;
            break;
        case 'n':
            text += '\n';
            break;
        case 'r':
            text += '\r';
            break;
        case 't':
            text += '\t';
            break;
        case 'x': {
            if (position + 2 > line.size() || hexDigit(line[position]) < 0 ||
                hexDigit(line[position + 1]) < 0)
                return std::nullopt;
            text += static_cast<char>(hexDigit(line[position]) * 16 + hexDigit(line[position + 1]));
            position += 2;
            break;
        }
        default:
            return std::nullopt;
        }
    }
    return std::nullopt;
}

bool isDecimalInteger(std::string_view text) {
    const std::size_t start = !text.empty() && text.front() == '-' ? 1 : 0;
    if (text.size() == start)
        return false;
    for (std::size_t i = start; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
    }
    return true;
}

// Holds an exclusive advisory lock on a file for its scope.
class FileLock {
public:
    explicit FileLock(const std::string& path)
        : descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        if (descriptor >= 0 && flock(descriptor, LOCK_EX) != 0) {
            close(descriptor);
            descriptor = -1;
        }
    }
    ~FileLock() {
        if (descriptor >= 0)
            close(descriptor);
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    bool locked() const { return descriptor >= 0; }

private:
    int descriptor;
};

} // namespace

std::optional<std::pair<std::string, PreferenceValue>> parsePreferenceLine(std::string_view line) {
    if (line.empty() || line.front() == '#')
        return std::nullopt;
    for (const char character : line) {
        if (isControl(character))
            return std::nullopt;
    }
    std::size_t position = 0;
    auto key = readEscaped(line, position, '=');
    if (!key || key->empty())
        return std::nullopt;
    const std::string_view value = line.substr(position);
    if (isDecimalInteger(value))
        return std::pair{std::move(*key),
                         PreferenceValue{PreferenceValue::Type::Integer, std::string(value)}};
    if (value.empty() || value.front() != '"')
        return std::nullopt;
    position = 1;
    auto text = readEscaped(value, position, '"');
    if (!text || position != value.size())
        return std::nullopt;
    return std::pair{std::move(*key), PreferenceValue{PreferenceValue::Type::String, std::move(*text)}};
}

PreferenceMap parsePreferences(std::string_view text) {
    PreferenceMap values;
    std::size_t start = 0;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', start)) {
        if (auto entry = parsePreferenceLine(text.substr(start, end - start)))
            values.insert_or_assign(std::move(entry->first), std::move(entry->second));
        start = end + 1;
    }
    return values;
}

std::string formatPreferences(const PreferenceMap& values) {
    std::string text = "# Zorvane preferences\n";
    for (const auto& [key, value] : values) {
        // A key beginning with "#" must not turn its line into a comment.
        const bool hidesAsComment = key.front() == '#';
        if (hidesAsComment)
            text += "\\x23";
        appendEscaped(text, std::string_view(key).substr(hidesAsComment ? 1 : 0));
        text += '=';
        if (value.type == PreferenceValue::Type::Integer) {
            text += value.text;
        } else {
            text += '"';
            appendEscaped(text, value.text);
            text += '"';
        }
        text += '\n';
    }
    return text;
}

PreferenceMap loadPreferences(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error || size > kMaximumFileSize)
        return {};
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return parsePreferences(text);
}

bool updatePreferences(const std::string& path, const PreferenceMap& changes) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    const FileLock lock(path + ".lock");
    if (!lock.locked())
        return false;
    PreferenceMap values = loadPreferences(path);
    for (const auto& [key, value] : changes)
        values.insert_or_assign(key, value);
    return writeFileAtomically(path, formatPreferences(values));
}
