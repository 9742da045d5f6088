#include "encoding/base64.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace veltrancord {
namespace {

std::string Encode(std::string_view in) {
    std::vector<char> out(base64_encoded_size(in.size()), '#');
    const auto* const bytes = reinterpret_cast<const unsigned char*>(in.data());
    EXPECT_EQ(base64_encode({bytes, in.size()}, out), static_cast<int32_t>(out.size() - 1));
    return out.data();
}

// The decoded bytes, without the NUL that must follow them.
std::string Decode(std::string_view in) {
    std::vector<char> out(in.size() + 8, '#');
    const base64_decoded decoded = base64_decode(in, out);
    EXPECT_EQ(decoded.code, 0) << in;
    EXPECT_EQ(out[decoded.written], '\0');
    EXPECT_EQ(out[decoded.written + 1], '#');
    return {out.data(), decoded.written};
}

TEST(Base64, EncodesWithPadding) {
    EXPECT_EQ(Encode(""), "");
    EXPECT_EQ(Encode("f"), "Zg==");
    EXPECT_EQ(Encode("fo"), "Zm8=");
    EXPECT_EQ(Encode("foo"), "Zm9v");
    EXPECT_EQ(Encode("foob"), "Zm9vYg==");
    EXPECT_EQ(Encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(Encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(Encode("\xFB\xFF\xFE"), "+//+");
    EXPECT_EQ(Encode(std::string(60, 'x')).find('\n'), std::string::npos);
}

TEST(Base64, RefusesToEncodeIntoTooSmallAnOutput) {
    std::vector<char> out(8, '#');
    const std::vector<unsigned char> in(6, 'x');
    EXPECT_EQ(base64_encode(in, out), -1);
    EXPECT_EQ(out, std::vector<char>(8, '#'));
}

TEST(Base64, APaddedGroupStillYieldsThreeBytes) {
    using namespace std::string_literals;
    EXPECT_EQ(Decode("QQ=="), "A\0\0"s);
    EXPECT_EQ(Decode("Zm8="), "fo\0"s);
    EXPECT_EQ(Decode("Zm9v"), "foo");
    EXPECT_EQ(Decode("A=B="), "\0\0\x40"s);
}

TEST(Base64, AcceptsTextWithoutItsPadding) {
    using namespace std::string_literals;
    EXPECT_EQ(Decode("AB"), "\0\x10\0"s);
    EXPECT_EQ(Decode("AB"), Decode("AB=="));
    EXPECT_EQ(Decode("Zm8"), Decode("Zm8="));
    EXPECT_EQ(Decode("Z"), Decode("Z==="));
}

TEST(Base64, OnlyTheLowSevenBitsOfACharacterCount) {
    EXPECT_EQ(Decode("Zm9v"), Decode("\xDA\xED\xB9\xF6"));
}

TEST(Base64, StopsAtTheFirstGroupWithAnInvalidCharacter) {
    for (const std::string_view text : {"A*B=", "*", "", " ", "A-B_", "\x80\x80\x80\x80"}) {
        std::vector<char> out(16, '#');
        const base64_decoded decoded = base64_decode(text, out);
        EXPECT_EQ(decoded.code, -1) << text;
        EXPECT_EQ(decoded.written, 0U);
        EXPECT_EQ(out, std::vector<char>(16, '#'));
    }
    std::vector<char> out(16, '#');
    const base64_decoded decoded = base64_decode("Zm9vA*B=", out);
    EXPECT_EQ(decoded.code, -1);
    EXPECT_EQ(decoded.written, 3U);
    EXPECT_EQ(std::string(out.data(), 4), "foo#");  // what came before, not terminated
}

TEST(Base64, KnowsEveryCharacter) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text = std::string(3, 'A') + static_cast<char>(byte);
        std::vector<char> out(4);
        const int low = byte & 127;
        const bool valid = std::isalnum(low) != 0 || low == '+' || low == '/' || low == '=';
        EXPECT_EQ(base64_decode(text, out).code, valid ? 0 : -1) << byte;
    }
}

TEST(Base64, NeverWritesPastItsOutput) {
    for (std::size_t size = 0; size < 14; ++size) {
        std::vector<char> out(size, '#');
        const base64_decoded decoded = base64_decode("Zm9vYmFyZm9v", out);
        EXPECT_EQ(decoded.code, size >= 10 ? 0 : -1) << size;
        EXPECT_EQ(decoded.written, size == 0 ? 0 : std::min<std::size_t>((size - 1) / 3 * 3, 9));
    }
}

TEST(Base64, DecodingGivesBackWhatWasEncoded) {
    std::mt19937 random(3);
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 100 + 1, '\0');
        for (char& c : bytes) {
            c = static_cast<char>(random());
        }
        std::string text = Encode(bytes);
        EXPECT_EQ(text.size() % 4, 0U);
        EXPECT_EQ(Decode(text).substr(0, bytes.size()), bytes);
        text.erase(std::min(text.find('='), text.size()));
        EXPECT_EQ(Decode(text).substr(0, bytes.size()), bytes);
    }
}

}  // namespace
}  // namespace veltrancord
