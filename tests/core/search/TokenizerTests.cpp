#include "search/SearchIndex.h"
#include "search/Tokenizer.h"
#include "support/Unicode.h"

#include <gtest/gtest.h>
#include <random>
#include <unicode/uchar.h>

namespace qs {
namespace {

using Tokens = std::vector<std::string>;

struct TokenCase {
    const char* name;
    std::string text;
    Tokens expected;
};

class TokenizeTest : public testing::TestWithParam<TokenCase> {};

TEST_P(TokenizeTest, GivesTheExpectedTokens) {
    EXPECT_EQ(SearchIndex::tokenize(GetParam().text), GetParam().expected);
}

const std::string sixty(60, 'q');

INSTANTIATE_TEST_SUITE_P(
    Cases, TokenizeTest,
    testing::Values(
        TokenCase{"Empty", "", {}}, TokenCase{"PunctuationOnly", "!!! -- ...", {}},
        TokenCase{"OneLetterWordsDropped", "I a b invoice x", {"invoice"}},
        TokenCase{"CaseFolded", "Invoice INVOICE invoice", {"invoice", "invoice", "invoice"}},
        TokenCase{"AccentsFolded", "Café CAFE", {"cafe", "cafe"}},
        TokenCase{"DecomposedAccent", "e\u0301cole", {"ecole"}},
        TokenCase{"ResumeFolded", "résumé", {"resume"}},
        TokenCase{"SharpSFolds", "Straße", {"strasse"}},
        TokenCase{"LigatureFolds", "\uFB01le", {"file"}},
        TokenCase{"KelvinSign", "\u212Aelvin", {"kelvin"}},
        TokenCase{"Greek", "ΣΊΣΥΦΟΣ", {"σισυφοσ"}},
        TokenCase{"Cyrillic", "Привет, мир", {"привет", "мир"}},
        TokenCase{"EmailSplits", "Jane.Doe@Example.COM", {"jane", "doe", "example", "com"}},
        TokenCase{"HyphenAndApostrophe", "e-mail don't don’t", {"mail", "don", "don"}},
        TokenCase{
            "Numbers", "order 12345 on 2024-03-01", {"order", "12345", "on", "2024", "03", "01"}},
        TokenCase{"SuperscriptDigitIsNumeric", "x² m³", {"x²", "m³"}},
        TokenCase{"IdeographRunIsOneWord", "東京都庁舎に", {"東京都庁舎に"}},
        TokenCase{"EmojiIsNoWord", "hi 👍🏽 there", {"hi", "there"}},
        TokenCase{"EmojiSplitsWords", "ab👍cd", {"ab", "cd"}},
        TokenCase{
            "DuplicatesKeptInOrder", "to be or not to be", {"to", "be", "or", "not", "to", "be"}},
        TokenCase{"SixtyLettersCutAtForty", sixty, {std::string(40, 'q')}},
        TokenCase{"FortyOneCutToForty", std::string(41, 'Z'), {std::string(40, 'z')}},
        TokenCase{"FortyKept", std::string(40, 'k'), {std::string(40, 'k')}},
        TokenCase{"InvalidUTF8Splits",
                  "ab\xFF"
                  "cd",
                  {"ab", "cd"}},
        TokenCase{"LineEnds", "one\r\ntwo\rthree\nfour", {"one", "two", "three", "four"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Tokenize, CountsGraphemeClustersNotScalars) {
    // Hangul syllables decompose into two or three jamo each, yet each stays one character:
    // two syllables make a word, one doesn't.
    auto tokens = SearchIndex::tokenize("한국 한");
    ASSERT_EQ(tokens.size(), 1u);
    EXPECT_EQ(Unicode::graphemeCount(tokens[0]), 2u);
    std::string many;
    for (int i = 0; i < 45; ++i) {
        many += "한";
    }
    tokens = SearchIndex::tokenize(many);
    ASSERT_EQ(tokens.size(), 1u);
    EXPECT_EQ(Unicode::graphemeCount(tokens[0]), 40u);
}

// The straightforward reading of the rules: fold the whole text, walk its grapheme clusters,
// classify each by its first scalar. The tokenizer's ASCII fast path and per-run folding must
// agree with it on any input.
Tokens referenceTokens(std::string_view text) {
    Tokens out;
    auto folded = Unicode::fold(text);
    std::string word;
    size_t length = 0;
    auto finish = [&] {
        if (length >= Tokenizer::minimumLength) {
            out.push_back(word);
        }
        word.clear();
        length = 0;
    };
    for (auto cluster : Unicode::graphemes(folded)) {
        UChar32 c = Unicode::fromUTF8(cluster).char32At(0);
        bool isWord = u_hasBinaryProperty(c, UCHAR_ALPHABETIC) ||
                      u_getIntPropertyValue(c, UCHAR_NUMERIC_TYPE) != U_NT_NONE;
        if (!isWord) {
            finish();
            continue;
        }
        if (length < Tokenizer::maximumLength) {
            word += cluster;
        }
        ++length;
    }
    finish();
    return out;
}

TEST(Tokenize, AgreesWithTheDirectReadingOnRandomMixedText) {
    // Pieces chosen to stress the seams between the ASCII fast path and ICU: marks and joiners
    // right after ASCII, prepended marks before ASCII, folds that produce ASCII or punctuation,
    // invalid bytes, CR LF.
    const std::vector<std::string> pieces = {"a",      "Z",
                                             "5",      "q",
                                             " ",      "-",
                                             ".",      "@",
                                             "\r\n",   "\r",
                                             "é",      "e\u0301",
                                             "\u0301", "\u200D",
                                             "👍",      "🏽",
                                             "ß",      "東",
                                             "\u0903", "\u0915",
                                             "\u0600", "İ",
                                             "\uFB01", "\u212A",
                                             "\u037E", "\xFF",
                                             "\xE2",   "한",
                                             "\u20DD", "’",
                                             "²",      "\u00A0",
                                             "Ω",      "\U0001F1EB\U0001F1F7",
                                             "x"};
    std::mt19937 random(12345);
    std::uniform_int_distribution<size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(0, 30);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        int n = length(random);
        for (int i = 0; i < n; ++i) {
            text += pieces[pick(random)];
        }
        ASSERT_EQ(SearchIndex::tokenize(text), referenceTokens(text)) << "text: " << text;
    }
}

TEST(Tokenize, AgreesWithTheDirectReadingOnLongWords) {
    // Words past the forty-character cut, with the cut falling on folded and combined letters.
    std::string text = std::string(45, 'a') + "é" + std::string(10, 'b') + " " +
                       std::string(39, 'c') + "\u0301" + "dd";
    EXPECT_EQ(SearchIndex::tokenize(text), referenceTokens(text));
}

} // namespace
} // namespace qs
