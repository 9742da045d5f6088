#include "encoding/secret.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

#include "encoding/base64.h"

namespace veltrancord {
namespace {

using secret_text = std::array<char, secret_text_size>;

std::string Encode(std::string_view plain) {
    secret_text out;
    out.fill('#');
    const int32_t length = enc_value_encode(plain, out);
    const std::string form = out.data();
    EXPECT_EQ(length, static_cast<int32_t>(form.size() - form.rfind(':') - 1));
    return form;
}

std::string Decode(std::string_view stored, int32_t expected = 0) {
    secret_text out{};
    EXPECT_EQ(enc_value_decode(stored, out), expected) << stored;
    EXPECT_EQ(out.back(), '\0');
    return out.data();
}

// The bytes that the form changes its plain text by, found by looking at what it makes of a text.
std::string KeyBytes(std::size_t count) {
    const std::string plain(count, 'x');
    const std::string form = Encode(plain);
    secret_text out{};
    EXPECT_EQ(base64_decode(form.substr(form.rfind(':') + 1), out).code, 0);
    std::string key(out.data(), count);
    for (char& c : key) {
        c = static_cast<char>(c ^ 'x');
    }
    return key;
}

TEST(Secret, FormIsPrefixLengthAndBase64) {
    const std::string form = Encode("secret");
    EXPECT_EQ(form.substr(0, 6), "enc:6:");
    EXPECT_EQ(form.size(), 14U);
    EXPECT_EQ(Encode(""), "enc:0:");
}

TEST(Secret, KeyRepeatsAfterSevenBytesAndChangesEveryOne) {
    const std::string key = KeyBytes(150);
    for (std::size_t i = 0; i + 7 < key.size(); ++i) {
        EXPECT_EQ(key[i], key[i + 7]);
        EXPECT_NE(key[i], '\0');
    }
    EXPECT_NE(key.substr(0, 7), std::string(7, key[0]));
}

TEST(Secret, LengthIsKeptInOneByte) {
    std::string plain;
    for (int i = 0; i < 300; ++i) {
        plain += static_cast<char>('A' + i % 26);
    }
    const std::string form = Encode(plain);
    EXPECT_EQ(form.substr(0, 7), "enc:44:");
    EXPECT_EQ(Decode(form), plain.substr(0, 44));
    EXPECT_EQ(Encode(plain.substr(0, 256)), "enc:0:");
}

TEST(Secret, FormThatDoesNotFitIsRefusedAndNothingWritten) {
    secret_text out;
    out.fill('#');
    // "enc:184:" and 248 characters of base64 are 256 bytes without their NUL.
    EXPECT_EQ(enc_value_encode(std::string(184, 'p'), out), -1);
    EXPECT_EQ(std::string(out.data(), out.size()), std::string(out.size(), '#'));
    EXPECT_EQ(Encode(std::string(183, 'p')).size(), 8U + 244U);
}

TEST(Secret, PlainTextIsLeftAlone) {
    const std::string plain = "secret";
    static_cast<void>(Encode(plain));
    EXPECT_EQ(plain, "secret");
}

TEST(Secret, TextWithoutThePrefixIsItsOwnPlainText) {
    EXPECT_EQ(Decode("plain"), "plain");
    EXPECT_EQ(Decode(""), "");
    EXPECT_EQ(Decode("enc"), "enc");
    EXPECT_EQ(Decode("ENC:1:QQ=="), "ENC:1:QQ==");
    EXPECT_EQ(Decode(std::string(300, 'x')), std::string(255, 'x'));
}

TEST(Secret, PrefixWithoutSecondColonWritesNothing) {
    secret_text out;
    out.fill('#');
    EXPECT_EQ(enc_value_decode("enc:abc", out), 0);
    EXPECT_EQ(enc_value_decode("enc:", out), 0);
    EXPECT_EQ(std::string(out.data(), out.size()), std::string(out.size(), '#'));
}

TEST(Secret, EmptyBase64PartIsInvalidAndWritesNothing) {
    secret_text out;
    out.fill('#');
    EXPECT_EQ(enc_value_decode("enc:0:", out), -1);
    EXPECT_EQ(enc_value_decode("enc:7:", out), -1);
    EXPECT_EQ(std::string(out.data(), out.size()), std::string(out.size(), '#'));
}

TEST(Secret, OnlyTheAnnouncedBytesAreChanged) {
    EXPECT_EQ(Decode("enc:0:Zm9v"), "foo");
    EXPECT_EQ(Decode("enc:-5:Zm9v"), "foo");
    EXPECT_EQ(Decode("enc:x:Zm9v"), "foo");
    const std::string one = Decode("enc:1:Zm9v");
    EXPECT_EQ(one[0], static_cast<char>('f' ^ KeyBytes(1)[0]));
    EXPECT_EQ(one.substr(1), "oo");
}

// A value that announces more than it carries used to bring the key to light: unwritten and padding
// bytes are zero, and zero changed by the key is the key.
TEST(Secret, KeyNeverShows) {
    const std::string key = KeyBytes(7);
    for (const char* const stored :
         {"enc:200:", "enc:200:*", "enc:200:Zm9v*", "enc:200:Zm9v",
          "enc:200:QQ==", "enc:3:QQ==", "enc:99999999999:Zm8=", "enc:7:="}) {
        secret_text out{};
        static_cast<void>(enc_value_decode(stored, out));
        const std::string all(out.data(), out.size());
        for (std::size_t i = 0; i + 2 <= key.size(); ++i) {
            EXPECT_EQ(all.find(key.substr(i, 2)), std::string::npos) << stored;
        }
        EXPECT_EQ(all.substr(3).find_first_not_of('\0'), std::string::npos) << stored;
    }
}

TEST(Secret, BytesBeforeAnInvalidGroupAreDecoded) {
    const std::string form = Encode("abcdef");
    const std::string damaged = form.substr(0, form.size() - 4) + "****";
    EXPECT_EQ(Decode(damaged, -1), "abc");
}

TEST(Secret, DecodingIsBounded) {
    std::string stored = "enc:0:";
    for (int i = 0; i < 200; ++i) {
        stored += "Zm9v";
    }
    secret_text out{};
    static_cast<void>(enc_value_decode(stored, out));
    EXPECT_EQ(std::string(out.data()).size(), 255U);
    std::array<char, 1> tiny{'#'};
    static_cast<void>(enc_value_decode("enc:3:Zm9v", tiny));
    static_cast<void>(enc_value_decode("plain", tiny));
    EXPECT_EQ(tiny[0], '\0');
    EXPECT_EQ(enc_value_decode("plain", std::span<char>()), -1);
}

TEST(Secret, DecodingGivesBackWhatWasEncoded) {
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        std::string plain(random() % 183 + 1, '\0');
        for (char& c : plain) {
            c = static_cast<char>(random() % 255 + 1);
        }
        EXPECT_EQ(Decode(Encode(plain)), plain);
    }
}

TEST(Secret, AKeyHasSevenPrintableCharacters) {
    const std::string before = Encode("crane");
    for (const char* const key : {"", "short7", "longer78", "with sp", "\t234567"}) {
        EXPECT_FALSE(use_value_key(key)) << key;
    }
    EXPECT_EQ(Encode("crane"), before);
}

}  // namespace
}  // namespace veltrancord
