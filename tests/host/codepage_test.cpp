// The 8-bit code page names are stored in: Windows-1252 both ways.
#include "host/codepage.h"

#include <gtest/gtest.h>

#include <string>

#include "host/standalone/scene.h"

namespace kv {
namespace {

using host::Cp1252ToUtf8;
using host::Utf8ToCp1252;

TEST(CodePage, LatinCharactersAreOneByteEach) {
  EXPECT_EQ(Utf8ToCp1252("Wände"), "W\xE4nde");
  EXPECT_EQ(Utf8ToCp1252("Größe"),
            "Gr\xF6\xDF"
            "e");
  EXPECT_EQ(Utf8ToCp1252("\xC2\xA0\xC3\xBF"), "\xA0\xFF");  // no-break space, y diaeresis
  // The 0x80 to 0x9F range holds punctuation and letters from far up in Unicode.
  EXPECT_EQ(Utf8ToCp1252("€ “x” — Œ Ÿ ž"), "\x80 \x93x\x94 \x97 \x8C \x9F \x9E");
  EXPECT_EQ(Cp1252ToUtf8("\x80 \x93x\x94 \x97 \x8C \x9F \x9E"), "€ “x” — Œ Ÿ ž");
  EXPECT_EQ(Cp1252ToUtf8("W\xE4nde"), "Wände");
  // Every byte reads as a character, and the text it gives goes back to the same byte.
  for (int b = 1; b < 256; ++b) {
    const std::string one(1, static_cast<char>(b));
    EXPECT_EQ(Utf8ToCp1252(Cp1252ToUtf8(one)), one) << b;
  }
}

TEST(CodePage, WhatTheCodePageLacksBecomesAQuestionMark) {
  EXPECT_EQ(Utf8ToCp1252("日本"), "??");
  EXPECT_EQ(Utf8ToCp1252("a\xF0\x9F\x98\x80z"), "a?z");  // beyond the basic plane: one '?'
  EXPECT_EQ(Utf8ToCp1252("\xC2\x81"), "\x81");           // a control the code page leaves open
  // Broken UTF-8 never yields more than one byte per input byte, and never a stray letter.
  EXPECT_EQ(Utf8ToCp1252("a\xC3"), "a?");          // cut sequence
  EXPECT_EQ(Utf8ToCp1252("\xC0\xAF"), "??");       // overlong '/'
  EXPECT_EQ(Utf8ToCp1252("\xED\xA0\x80"), "???");  // a surrogate
  EXPECT_EQ(Utf8ToCp1252("\xFF"), "?");
  EXPECT_EQ(Utf8ToCp1252(""), "");
}

TEST(CodePage, TheStandaloneHostUsesWindows1252) {
  standalone::Scene scene;
  const host::Interface& ip = scene;
  EXPECT_EQ(ip.ToCodePage("Größe"),
            "Gr\xF6\xDF"
            "e");
  EXPECT_EQ(ip.FromCodePage("\xE9"
                            "a"),
            "éa");
}

}  // namespace
}  // namespace kv
