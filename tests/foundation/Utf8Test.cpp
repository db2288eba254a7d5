#include "foundation/Utf8.h"

#include <gtest/gtest.h>

TEST(Utf8, InvalidBytesBecomeReplacementCharacters) {
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(toValidUtf8("Gain \xC3\xA9t\xC3\xA9"), "Gain \xC3\xA9t\xC3\xA9");
    EXPECT_EQ(toValidUtf8("a\xFFz"), "a" + replacement + "z");
    // A sequence cut short at the end, an overlong "/", a surrogate: each bad byte is replaced.
    EXPECT_EQ(toValidUtf8("x\xE2\x82"), "x" + replacement + replacement);
    EXPECT_EQ(toValidUtf8("\xC0\xAF"), replacement + replacement);
    EXPECT_EQ(toValidUtf8("\xED\xA0\x80"), replacement + replacement + replacement);
    EXPECT_EQ(toValidUtf8(std::string("\0a", 2)), std::string("\0a", 2));
    EXPECT_TRUE(isValidUtf8(toValidUtf8("\xF4\x90\x80\x80 \x80")));
    EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80"));
}
