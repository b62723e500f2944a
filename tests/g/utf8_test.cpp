// Decoding UTF-8 from outside (the manual, files): good text comes through whole, and every bad
// byte becomes one U+FFFD without stopping the rest.
#include "g/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct DecodeCase {
    std::string bytes;
    std::wstring text;
};

TEST(Utf8, DecodesWholeCharactersAndReplacesEachBadByte) {
    const DecodeCase cases[] = {
        {"plain", L"plain"},
        {"\xC2\xBD \xC3\x97 \xE2\x80\x93 \xF0\x9F\x8E\xB9", L"½ × – \U0001F3B9"},
        {"a\x80"
         "b",
         L"a\uFFFD"
         "b"},                                              // stray continuation byte
        {"\xE2\x80", L"\uFFFD\uFFFD"},                      // truncated at the end
        {"\xE2(x", L"\uFFFD(x"},                            // lead byte without its tail
        {"\xC0\xAF", L"\uFFFD\uFFFD"},                      // overlong "/"
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},            // surrogate
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},  // past U+10FFFF
        {"\xFF", L"\uFFFD"},
        {"", L""},
    };
    for (const DecodeCase& c : cases) EXPECT_EQ(G::FromUtf8(c.bytes), c.text) << c.bytes;
}

TEST(Utf8, EncodingThenDecodingGivesBackEveryCharacter) {
    std::wstring all;
    for (wchar_t c :
         {L'A', L'\u00E9', L'\u07FF', L'\u0800', L'\uFFFD', L'\uFFFF', wchar_t(0x10000), wchar_t(0x10FFFF)})
        all += c;
    EXPECT_EQ(G::FromUtf8(G::ToUtf8(all)), all);
}

}  // namespace
