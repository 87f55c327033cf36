// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>
#include <utility>

#include "tools/text/Escape.h"
#include "tools/text/Utf8.h"

using idl::tools::printable;
using idl::tools::quotedText;
using idl::tools::unquoted;

namespace {

struct Shown {
  std::string bytes;
  std::string form;
};

void PrintTo(const Shown& shown, std::ostream* stream) { *stream << shown.form; }

}  // namespace

class EveryName : public testing::TestWithParam<Shown> {};

TEST_P(EveryName, IsShownQuoted) { EXPECT_EQ(quotedText(GetParam().bytes), GetParam().form); }

TEST_P(EveryName, IsReadBackFromWhatIsShown) {
  const auto read = unquoted(GetParam().form);

  ASSERT_TRUE(read) << read.error;
  EXPECT_EQ(read.value->bytes, GetParam().bytes);
  EXPECT_EQ(read.value->length, GetParam().form.size());
}

INSTANTIATE_TEST_SUITE_P(
    , EveryName,
    testing::Values(Shown{"iPhone", R"("iPhone")"}, Shown{"", R"("")"}, Shown{" a b ", R"(" a b ")"},
                    Shown{"Anna's \"phone\"", R"("Anna's \"phone\"")"}, Shown{"a\\n", R"("a\\n")"},
                    Shown{"a\nb\rc\td", R"("a\nb\rc\td")"}, Shown{"\x1b[31m", R"("\x1b[31m")"},
                    Shown{std::string("\0", 1), R"("\x00")"}, Shown{"\x7f", R"("\x7f")"}, Shown{"\xff", R"("\xff")"},
                    Shown{"T\xc3\xa9l\xc3", "\"T\xc3\xa9l\\xc3\""},
                    Shown{"\xc2\x9b"
                          "31m",
                          R"("\u{9b}31m")"},  // the control sequence introducer as C1
                    Shown{"\xe2\x80\xae"
                          "abc",
                          R"("\u{202e}abc")"},  // writes from right to left
                    Shown{"\xe2\x80\x8e", R"("\u{200e}")"}, Shown{"\xe2\x81\xa6", R"("\u{2066}")"},
                    Shown{"\xd8\x9c", R"("\u{61c}")"},  // Arabic letter mark
                    Shown{"a\xe2\x80\x8b"
                          "b",
                          R"("a\u{200b}b")"},  // no width
                    Shown{"\xe2\x80\xa8", R"("\u{2028}")"}, Shown{"\xe2\x80\xa9", R"("\u{2029}")"},
                    Shown{"\xef\xbb\xbf"
                          "a",
                          R"("\u{feff}a")"},                 // byte order mark
                    Shown{"\xc2\xa0", R"("\u{a0}")"},        // a blank that looks like a space
                    Shown{"\xe3\x85\xa4", R"("\u{3164}")"},  // a letter without a look
                    Shown{"\xe2\x9d\xa4\xef\xb8\x8f",
                          "\"\xe2\x9d\xa4\\u{fe0f}\""},      // a heart with a variation selector
                    Shown{"\xee\x80\x80", R"("\u{e000}")"},  // private
                    Shown{"\xef\xbf\xbf", R"("\u{ffff}")"},  // never to be a character
                    Shown{"\xf4\x8f\xbf\xbf", R"("\u{10ffff}")"}, Shown{"e\xcc\x81", "\"e\xcc\x81\""},
                    Shown{"\xcc\x81", R"("\u{301}")"},  // a mark that would stand on the quote
                    Shown{"\n\xcc\x81", R"("\n\u{301}")"},
                    Shown{"\xe6\x90\xba\xe5\xb8\xaf", "\"\xe6\x90\xba\xe5\xb8\xaf\""},
                    Shown{"\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d", "\"\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d\""},
                    Shown{"\xf0\x9f\x98\x80", "\"\xf0\x9f\x98\x80\""}));

TEST(AnyBytes, AreReadBackAndShownHarmlessly) {
  std::minstd_rand engine(1);
  for (int round = 0; round < 5000; ++round) {
    std::string bytes;
    const auto length = static_cast<unsigned>(engine() % 12);
    for (unsigned i = 0; i < length; ++i) {
      if (engine() % 2 == 0) {
        bytes += static_cast<char>(engine() % 256);
      } else {
        const auto character = static_cast<char32_t>(engine() % (round % 2 == 0 ? 0x3000 : 0x110000));
        idl::tools::appendUtf8(bytes, character >= 0xD800 && character < 0xE000 ? U'a' : character);
      }
    }

    const std::string form = quotedText(bytes);

    const auto read = unquoted(form);
    ASSERT_TRUE(read) << form;
    EXPECT_EQ(read.value->bytes, bytes);
    EXPECT_EQ(read.value->length, form.size());
    EXPECT_TRUE(idl::tools::isUtf8(form));
    EXPECT_EQ(form.find_first_of("\n\r\t\x1b\x7f"), std::string::npos);
    EXPECT_EQ(printable(form), form);
  }
}

class ABadQuotation : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(ABadQuotation, IsRefusedWithAReason) {
  const auto read = unquoted(GetParam().first);

  EXPECT_FALSE(read);
  EXPECT_NE(read.error.find(GetParam().second), std::string::npos) << read.error;
}

INSTANTIATE_TEST_SUITE_P(, ABadQuotation,
                         testing::Values(std::pair{R"(")", "not ended"}, std::pair{R"("abc)", "not ended"},
                                         std::pair{R"("abc\")", "not ended"}, std::pair{"\"a\nb\"", "not ended"},
                                         std::pair{R"("\q")", "no such escape"}, std::pair{R"("\)", "no such escape"},
                                         std::pair{R"("\x1")", "two hexadecimal digits"},
                                         std::pair{R"("\xgg")", "two hexadecimal digits"},
                                         std::pair{R"("\u202e")", "braces"}, std::pair{R"("\u{}")", "braces"},
                                         std::pair{R"("\u{1234567}")", "braces"}, std::pair{R"("\u{12)", "braces"},
                                         std::pair{R"("\u{d800}")", "no character"},
                                         std::pair{R"("\u{110000}")", "no character"}));

TEST(AQuotedText, EndsAtItsQuote) {
  const auto read = unquoted(R"("one" "two")");

  ASSERT_TRUE(read);
  EXPECT_EQ(read.value->bytes, "one");
  EXPECT_EQ(read.value->length, 5U);
}

TEST(AQuotedText, MayEscapeWhatNeedsNoEscape) {
  const auto read = unquoted(R"("\x41\u{42}\u{00E9}\xC3\xA9")");

  ASSERT_TRUE(read);
  EXPECT_EQ(read.value->bytes, "AB\xc3\xa9\xc3\xa9");
}

TEST(APrintableText, KeepsQuotesAndBackslashes) {
  EXPECT_EQ(printable("say \"a\\b\"\x1b\xff"), "say \"a\\b\"\\x1b\\xff");
}
