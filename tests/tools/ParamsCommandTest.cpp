#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace {

struct RunResult {
    std::string output;
    int status;
};

// Runs the built tool through the shell; redirections in `arguments` choose what is captured.
RunResult runOndrel(const std::string& arguments) {
    const std::string command = std::string("'") + ONDREL_EXECUTABLE + "' " + arguments;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return {"", -1};
    std::string output;
    std::array<char, 4096> buffer{};
    for (size_t read; (read = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        output.append(buffer.data(), read);
    const int status = pclose(pipe);
    return {output, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

// Just enough JSON to check the tool's output: a strict reader that fails on anything malformed.
struct Json {
    enum class Kind { Null, Bool, Number, String, Array, Object } kind = Kind::Null;
    double number = 0.0;
    std::string text;
    std::vector<Json> items;
    std::map<std::string, Json> members;

    const Json& operator[](const std::string& key) const { return members.at(key); }
};

class JsonReader {
public:
    explicit JsonReader(const std::string& text_) : text(text_) {}

    bool readDocument(Json& value) {
        if (!readValue(value))
            return false;
        skipSpace();
        return position == text.size();
    }

private:
    void skipSpace() {
        while (position < text.size() && std::isspace(static_cast<unsigned char>(text[position])))
            ++position;
    }

    bool consume(char expected) {
        skipSpace();
        if (position >= text.size() || text[position] != expected)
            return false;
        ++position;
        return true;
    }

    bool readLiteral(const char* literal) {
        const std::string word(literal);
        if (text.compare(position, word.size(), word) != 0)
            return false;
        position += word.size();
        return true;
    }

    bool readString(std::string& out) {
        if (!consume('"'))
            return false;
        while (position < text.size() && text[position] != '"') {
            char c = text[position++];
            if (static_cast<unsigned char>(c) < 0x20)
                return false;
            if (c == '\\') {
                if (position >= text.size())
                    return false;
                const char escaped = text[position++];
                const std::map<char, char> simple{{'"', '"'},  {'\\', '\\'}, {'/', '/'},  {'n', '\n'},
                                                  {'t', '\t'}, {'r', '\r'},  {'b', '\b'}, {'f', '\f'}};
                if (escaped == 'u') {
                    if (position + 4 > text.size())
                        return false;
                    c = static_cast<char>(std::stoi(text.substr(position, 4), nullptr, 16));
                    position += 4;
                } else if (simple.count(escaped)) {
                    c = simple.at(escaped);
                } else {
                    return false;
                }
            }
            out += c;
        }
        return consume('"');
    }

    bool readNumber(double& out) {
        const size_t start = position;
        if (position < text.size() && text[position] == '-')
            ++position;
        if (position >= text.size() || !std::isdigit(static_cast<unsigned char>(text[position])))
            return false;
        while (position < text.size() &&
               (std::isdigit(static_cast<unsigned char>(text[position])) || text[position] == '.' ||
                text[position] == 'e' || text[position] == 'E' || text[position] == '+' ||
                text[position] == '-'))
            ++position;
        std::istringstream stream(text.substr(start, position - start));
        return static_cast<bool>(stream >> out) && stream.peek() == EOF;
    }

    bool readValue(Json& value) {
        skipSpace();
        if (position >= text.size())
            return false;
        const char c = text[position];
        if (c == '{') {
            value.kind = Json::Kind::Object;
            ++position;
            if (consume('}'))
                return true;
            do {
                std::string key;
                Json member;
                if (!readString(key) || !consume(':') || !readValue(member) || value.members.count(key))
                    return false;
                value.members.emplace(key, member);
            } while (consume(','));
            return consume('}');
        }
        if (c == '[') {
            value.kind = Json::Kind::Array;
            ++position;
            if (consume(']'))
                return true;
            do {
                value.items.emplace_back();
                if (!readValue(value.items.back()))
                    return false;
            } while (consume(','));
            return consume(']');
        }
        if (c == '"') {
            value.kind = Json::Kind::String;
            return readString(value.text);
        }
        if (c == 't' || c == 'f') {
            value.kind = Json::Kind::Bool;
            value.number = c == 't';
            return readLiteral(c == 't' ? "true" : "false");
        }
        if (c == 'n')
            return readLiteral("null");
        value.kind = Json::Kind::Number;
        return readNumber(value.number);
    }

    const std::string& text;
    size_t position = 0;
};

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        result.push_back(line);
    return result;
}

} // namespace

TEST(OndrelParamsJson, SixHundredWellFormedParameterObjects) {
    const RunResult run = runOndrel("params --json");
    ASSERT_EQ(run.status, 0);
    Json document;
    ASSERT_TRUE(JsonReader(run.output).readDocument(document));
    ASSERT_EQ(document.kind, Json::Kind::Array);
    ASSERT_EQ(document.items.size(), 600u);
    for (size_t index = 0; index < document.items.size(); ++index) {
        const Json& parameter = document.items[index];
        ASSERT_EQ(parameter.kind, Json::Kind::Object);
        EXPECT_EQ(parameter["index"].number, static_cast<double>(index));
        EXPECT_EQ(parameter["name"].kind, Json::Kind::String);
    }

    const Json& used = document.items[0];
    EXPECT_EQ(used["name"].text, "Band 1 Used");
    EXPECT_EQ(used["kind"].text, "indexed");
    ASSERT_EQ(used["values"].items.size(), 2u);
    EXPECT_EQ(used["values"].items[1].text, "Used");

    const Json& shape = document.items[5];
    EXPECT_EQ(shape["name"].text, "Band 1 Shape");
    EXPECT_EQ(shape["default"].number, 7.0);
    EXPECT_EQ(shape["defaultText"].text, "Bell");
    ASSERT_EQ(shape["values"].items.size(), 10u);
    EXPECT_EQ(shape["values"].items[9].text, "All Pass");

    const Json& frequency = document.items[2 + 23 * 23];
    EXPECT_EQ(frequency["name"].text, "Band 24 Frequency");
    EXPECT_NEAR(frequency["minimum"].number, 3.321928, 1e-6);
    EXPECT_NEAR(frequency["maximum"].number, 14.872675, 1e-6);
    EXPECT_EQ(frequency["defaultText"].text, "1000.0");
    EXPECT_EQ(frequency["unit"].text, "log2 Hz");
    EXPECT_NE(frequency["help"].text.find("'2k'"), std::string::npos);
    EXPECT_NE(frequency["help"].text.find("\n\nTip:"), std::string::npos);

    const Json& level = document.items[556];
    EXPECT_EQ(level["name"].text, "Output Level");
    EXPECT_EQ(level["kind"].text, "float");
    EXPECT_EQ(level["minimum"].number, -1.0);
    EXPECT_EQ(level["unit"].text, "dB");

    const Json& external = document.items[565];
    EXPECT_EQ(external["name"].text, "Analyzer External Spectrum");
    EXPECT_EQ(external["minimum"].number, -1.0);
    EXPECT_EQ(external["maximum"].number, 65536.0);
    EXPECT_EQ(external["default"].number, -1.0);
    EXPECT_EQ(external["unit"].kind, Json::Kind::Null);
    EXPECT_TRUE(external["values"].items.empty());

    EXPECT_EQ(document.items[599]["name"].text, "Band 24 Spectral Tilt");
}

TEST(OndrelParamsText, AlignedColumnsWithKnownRows) {
    const RunResult run = runOndrel("params");
    ASSERT_EQ(run.status, 0);
    const std::vector<std::string> table = lines(run.output);
    ASSERT_EQ(table.size(), 601u);

    const std::string& header = table[0];
    std::vector<size_t> starts;
    for (const char* column : {"Name", "Kind", "Range", "Default", "Unit", "Values"}) {
        const size_t start = header.find(column);
        ASSERT_NE(start, std::string::npos) << column;
        starts.push_back(start);
    }
    ASSERT_TRUE(std::is_sorted(starts.begin(), starts.end()));

    for (size_t row = 1; row < table.size(); ++row) {
        const std::string& line = table[row];
        SCOPED_TRACE(line);
        EXPECT_EQ(line.rfind(std::to_string(row - 1) + " ", 0), 0u);
        // Every column but the last starts at its header's position, right after a space.
        for (size_t column = 0; column + 1 < starts.size(); ++column) {
            ASSERT_GT(line.size(), starts[column]);
            EXPECT_EQ(line[starts[column] - 1], ' ');
            EXPECT_NE(line[starts[column]], ' ');
        }
        EXPECT_LE(line.size(), 132u);
    }

    const auto cellAt = [&](size_t row, size_t column) {
        const std::string& line = table[row + 1];
        const size_t end = column + 1 < starts.size() ? starts[column + 1] : line.size();
        std::string cell = line.substr(starts[column], end - starts[column]);
        return cell.erase(cell.find_last_not_of(' ') + 1);
    };
    EXPECT_EQ(cellAt(552, 0), "Processing Mode");
    EXPECT_EQ(cellAt(552, 1), "indexed");
    EXPECT_EQ(cellAt(552, 3), "Zero Latency");
    EXPECT_EQ(cellAt(552, 5), "Zero Latency,Natural Phase,...");
    EXPECT_EQ(cellAt(2, 0), "Band 1 Frequency");
    EXPECT_EQ(cellAt(2, 2), "3.321928 .. 14.872675");
    EXPECT_EQ(cellAt(2, 3), "9.965784 (1000.0)");
    EXPECT_EQ(cellAt(2, 4), "log2 Hz");
    EXPECT_EQ(cellAt(11, 3), "Dynamics Manual");
    EXPECT_EQ(cellAt(565, 3), "-1");
    EXPECT_EQ(cellAt(12, 3), "0.6666667 (0.667)");
    EXPECT_EQ(cellAt(575, 0), "Solo Gain");
    EXPECT_EQ(cellAt(575, 4), "dB");
}

TEST(OndrelCommandLine, HelpListsCommandsAndMistakesFailWithOneLine) {
    const RunResult help = runOndrel("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("params"), std::string::npos);

    const RunResult unknownCommand = runOndrel("frobnicate 2>&1 >/dev/null");
    EXPECT_NE(unknownCommand.status, 0);
    EXPECT_EQ(lines(unknownCommand.output).size(), 1u);
    EXPECT_NE(unknownCommand.output.find("frobnicate"), std::string::npos);

    const RunResult unknownOption = runOndrel("params --bogus 2>&1 >/dev/null");
    EXPECT_NE(unknownOption.status, 0);
    EXPECT_EQ(lines(unknownOption.output).size(), 1u);
    EXPECT_NE(unknownOption.output.find("--bogus"), std::string::npos);

    const RunResult noCommand = runOndrel("2>&1 >/dev/null");
    EXPECT_NE(noCommand.status, 0);
    EXPECT_EQ(lines(noCommand.output).size(), 1u);
}
