#include "RunOndrel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using tool_test::runOndrel;
using tool_test::ToolRun;

// Just enough JSON to check the tool's output: a strict reader that throws on anything malformed.
struct Json {
    bool isNull = false;
    double number = 0.0;
    std::string text;
    std::vector<Json> items;
    std::map<std::string, Json> members;

    const Json& operator[](const std::string& key) const { return members.at(key); }
};

class JsonReader {
public:
    static Json read(const std::string& text) {
        JsonReader reader(text);
        Json document = reader.value();
        if (reader.peek() != '\0')
            reader.fail();
        return document;
    }

private:
    explicit JsonReader(const std::string& text_) : text(text_) {}

    [[noreturn]] void fail() const { throw std::runtime_error("bad JSON at " + std::to_string(position)); }
    char peek() {
        while (position < text.size() && std::isspace(static_cast<unsigned char>(text[position])))
            ++position;
        return position < text.size() ? text[position] : '\0';
    }
    bool takeIf(char c) {
        if (peek() != c)
            return false;
        ++position;
        return true;
    }
    void take(char c) {
        if (!takeIf(c))
            fail();
    }
    char next() {
        if (position >= text.size())
            fail();
        return text[position++];
    }

    std::string string() {
        static const std::string kEscapes = "\"\\/bfnrt", kEscaped = "\"\\/\b\f\n\r\t";
        take('"');
        std::string out;
        for (char c; (c = next()) != '"'; out += c) {
            if (static_cast<unsigned char>(c) < 0x20)
                fail();
            if (c != '\\')
                continue;
            const char escape = next();
            if (escape == 'u') {
                c = static_cast<char>(std::stoi(text.substr(position, 4), nullptr, 16));
                position += 4;
            } else if (kEscapes.find(escape) != std::string::npos) {
                c = kEscaped[kEscapes.find(escape)];
            } else {
                fail();
            }
        }
        return out;
    }

    Json value() {
        Json result;
        const char c = peek();
        if (takeIf('{') && !takeIf('}')) {
            do {
                const std::string key = string();
                take(':');
                if (!result.members.emplace(key, value()).second)
                    fail();
            } while (takeIf(','));
            take('}');
        } else if (takeIf('[') && !takeIf(']')) {
            do
                result.items.push_back(value());
            while (takeIf(','));
            take(']');
        } else if (c == '{' || c == '[') {
            // empty object or array
        } else if (c == '"') {
            result.text = string();
        } else if (text.compare(position, 4, "null") == 0) {
            result.isNull = true;
            position += 4;
        } else {
            const size_t end = std::min(text.find_first_not_of("0123456789+-.eE", position), text.size());
            if (!(c == '-' || std::isdigit(static_cast<unsigned char>(c))))
                fail();
            size_t used = 0;
            result.number = std::stod(text.substr(position, end - position), &used);
            if (position + used != end)
                fail();
            position = end;
        }
        return result;
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
    const ToolRun run = runOndrel("params --json");
    ASSERT_EQ(run.status, 0);
    Json document;
    ASSERT_NO_THROW(document = JsonReader::read(run.out));
    ASSERT_EQ(document.items.size(), 600u);
    for (size_t index = 0; index < document.items.size(); ++index)
        EXPECT_EQ(document.items[index]["index"].number, static_cast<double>(index));

    const Json& shape = document.items[5];
    EXPECT_EQ(shape["default"].number, 7.0);
    EXPECT_EQ(shape["defaultText"].text, "Bell");
    ASSERT_EQ(shape["values"].items.size(), 10u);
    EXPECT_EQ(shape["values"].items[9].text, "All Pass");

    const Json& frequency = document.items[2 + 23 * 23];
    EXPECT_EQ(frequency["name"].text, "Band 24 Frequency");
    EXPECT_EQ(frequency["kind"].text, "float");
    EXPECT_NEAR(frequency["minimum"].number, 3.321928, 1e-6);
    EXPECT_NEAR(frequency["maximum"].number, 14.872675, 1e-6);
    EXPECT_EQ(frequency["defaultText"].text, "1000.0");
    EXPECT_EQ(frequency["unit"].text, "log2 Hz");
    EXPECT_NE(frequency["help"].text.find("\n\nTip:"), std::string::npos);

    const Json& external = document.items[565];
    EXPECT_EQ(external["name"].text, "Analyzer External Spectrum");
    EXPECT_EQ(external["minimum"].number, -1.0);
    EXPECT_EQ(external["maximum"].number, 65536.0);
    EXPECT_EQ(external["default"].number, -1.0);
    EXPECT_TRUE(external["unit"].isNull);
    EXPECT_TRUE(external["values"].items.empty());

    EXPECT_EQ(document.items[599]["name"].text, "Band 24 Spectral Tilt");
}

TEST(OndrelParamsText, AlignedColumnsWithKnownRows) {
    const ToolRun run = runOndrel("params");
    ASSERT_EQ(run.status, 0);
    const std::vector<std::string> table = lines(run.out);
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
    EXPECT_EQ(cellAt(552, 1), "indexed");
    EXPECT_EQ(cellAt(552, 5), "Zero Latency,Natural Phas...");
    EXPECT_EQ(cellAt(2, 2), "3.321928 .. 14.872675");
    EXPECT_EQ(cellAt(2, 3), "9.965784 (1000.0)");
    EXPECT_EQ(cellAt(2, 4), "log2 Hz");
    EXPECT_EQ(cellAt(11, 3), "Dynamics Manual");
    EXPECT_EQ(cellAt(565, 3), "-1");
    EXPECT_EQ(cellAt(12, 3), "0.6666667 (-13.33)");
    EXPECT_EQ(cellAt(12, 4), "dB");
    EXPECT_EQ(cellAt(4, 3), "0.5 (1.000)");
    EXPECT_EQ(cellAt(4, 4), "ratio");
}

TEST(OndrelCommandLine, HelpListsCommandsAndMistakesFailWithOneLine) {
    const ToolRun help = runOndrel("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("params"), std::string::npos);

    const ToolRun unknownCommand = runOndrel("frobnicate");
    EXPECT_NE(unknownCommand.status, 0);
    EXPECT_EQ(lines(unknownCommand.err).size(), 1u);
    EXPECT_NE(unknownCommand.err.find("frobnicate"), std::string::npos);

    const ToolRun unknownOption = runOndrel("params --bogus");
    EXPECT_NE(unknownOption.status, 0);
    EXPECT_EQ(lines(unknownOption.err).size(), 1u);
    EXPECT_NE(unknownOption.err.find("--bogus"), std::string::npos);

    const ToolRun noCommand = runOndrel("");
    EXPECT_NE(noCommand.status, 0);
    EXPECT_EQ(lines(noCommand.err).size(), 1u);
    for (const ToolRun* failed : {&unknownCommand, &unknownOption, &noCommand})
        EXPECT_TRUE(failed->out.empty()); // errors go to stderr only
}
