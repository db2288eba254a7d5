#include "presets/PresetText.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using Status = PresetTextReader::Status;

// Every line the reader sees, as "section" or "key=value" (values shown in brackets), or the
// status that stopped it.
std::vector<std::string> readAll(const std::string& text) {
    std::istringstream stream(text);
    PresetTextReader reader(stream);
    std::vector<std::string> lines;
    for (;;) {
        switch (reader.next()) {
        case Status::Section:
            lines.push_back("[" + reader.getSection() + "]");
            break;
        case Status::Entry:
            lines.push_back(reader.getKey() + "=<" + reader.getValue() + ">");
            break;
        case Status::EndOfFile:
            return lines;
        case Status::MissingBracket:
            lines.push_back("missing ]");
            return lines;
        case Status::TextAfterBracket:
            lines.push_back("text after ]");
            return lines;
        case Status::MissingEquals:
            lines.push_back("missing =");
            return lines;
        case Status::ReadError:
            lines.push_back("read error");
            return lines;
        }
    }
}

std::string written(const std::function<void(PresetTextWriter&)>& write) {
    std::ostringstream stream;
    PresetTextWriter writer(stream);
    write(writer);
    return stream.str();
}

} // namespace

TEST(PresetTextReader, SkipsBlanksCommentsAndEmptyLines) {
    const std::string text = "; saved by hand\n"
                             "\n"
                             "  \t[ Header\t]  \n"
                             "\tKey = value with trailing blanks \t\n"
                             "   ; indented comment\n"
                             "Empty=\n"
                             "Windows=line\r\n"
                             "Last=no line feed";
    const std::vector<std::string> expected{"[Header]", "Key=<value with trailing blanks>", "Empty=<>",
                                            "Windows=<line>", "Last=<no line feed>"};
    EXPECT_EQ(readAll(text), expected);
}

TEST(PresetTextReader, QuotedValuesAndEscapes) {
    const std::string text = "A=\"  two  spaces  \"\n"
                             "B=\"say \\\"hi\\\"\" and ignore this\n"
                             "C=line\\nfeed\\rreturn\\\\slash\n"
                             "D=unknown \\t escape and lone \\\n"
                             "E=a=b\n"
                             "F=\"unterminated\n";
    const std::vector<std::string> expected{"A=<  two  spaces  >",
                                            "B=<say \"hi\">",
                                            "C=<line\nfeed\rreturn\\slash>",
                                            "D=<unknown \\t escape and lone \\>",
                                            "E=<a=b>",
                                            "F=<unterminated>"};
    EXPECT_EQ(readAll(text), expected);
}

TEST(PresetTextReader, BrokenLinesStopWithTheirStatus) {
    EXPECT_EQ(readAll("[Header\nA=1\n"), std::vector<std::string>{"missing ]"});
    EXPECT_EQ(readAll("[Header] x\n"), std::vector<std::string>{"text after ]"});
    EXPECT_EQ(readAll("[Header]\nno equals sign\n"), (std::vector<std::string>{"[Header]", "missing ="}));
    EXPECT_EQ(readAll(""), std::vector<std::string>{});
}

TEST(PresetTextWriter, QuotesBlanksEscapesAndSeparatesSections) {
    const std::string text = written([](PresetTextWriter& writer) {
        writer.writeSection("Header");
        writer.writeEntry("Name", "My Preset");
        writer.writeEntry("Path", "C:\\presets\\\"x\"");
        writer.writeEntry("Notes", "one\ntwo\r");
        writer.writeEntry("Tab", "a\tb");
        writer.writeSection("Numbers");
        writer.writeNumber("Third", 1.0 / 3.0);
        writer.writeNumber("Small", 1e-5);
        writer.writeNumber("Float", 0.1f);
        writer.writeInteger("Version", 1);
    });
    EXPECT_EQ(text, "[Header]\n"
                    "Name=\"My Preset\"\n"
                    "Path=C:\\\\presets\\\\\\\"x\\\"\n"
                    "Notes=one\\ntwo\\r\n"
                    "Tab=\"a\tb\"\n"
                    "\n"
                    "[Numbers]\n"
                    "Third=0.333333333333333\n"
                    "Small=1e-05\n"
                    "Float=0.100000001490116\n"
                    "Version=1\n");
}

TEST(PresetTextWriter, KeysThatWouldReadBackDifferentlyAreNotWritten) {
    for (const char* key : {"", "a=b", "line\nfeed", " lead", "trail\t", "[section", ";comment", "cr\r"})
        EXPECT_FALSE(PresetTextWriter::isWritableKey(key)) << key;
    EXPECT_TRUE(PresetTextWriter::isWritableKey("Band 1 Gain"));
    const std::string text = written([](PresetTextWriter& writer) {
        writer.writeEntry("bad=key", "1");
        writer.writeEntry("good", "2");
    });
    EXPECT_EQ(text, "good=2\n");
}

TEST(PresetText, AnyValueSurvivesAWriteAndARead) {
    const std::vector<std::string> values{"",
                                          " ",
                                          "\"",
                                          "\\",
                                          "\\n",
                                          "a \"b\" c",
                                          "x\\",
                                          "\n\n",
                                          "\r\n",
                                          "  lead",
                                          "trail  ",
                                          "tab\tinside",
                                          "; not a comment",
                                          "[not a section]",
                                          "=",
                                          "quote at end\"",
                                          "\"quoted\""};
    for (const std::string& value : values) {
        const std::string text = written([&](PresetTextWriter& writer) { writer.writeEntry("Key", value); });
        const std::vector<std::string> lines = readAll(text);
        ASSERT_EQ(lines.size(), 1u) << text;
        EXPECT_EQ(lines[0], "Key=<" + value + ">") << text;
    }
}
