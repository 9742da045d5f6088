#include "signature.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "digest.h"
#include "operator_key.h"

namespace veltrancord::bridge {
namespace {

constexpr std::string_view topic = "veltrancord/1/yard-1/config/desired";

class Signature : public testing::Test {
  protected:
    Signature() { EXPECT_TRUE(keys_.add(key_.public_pem())); }

    [[nodiscard]] bool accepts(std::string_view payload, std::string_view under = topic) const {
        std::string_view text;
        return keys_.verify(under, payload, text);
    }

    operator_key key_;
    operator_keys keys_;
};

TEST_F(Signature, CoversAllThatFollows) {
    const std::string payload = key_.sign(topic, "id=a\n\nA.b=c\n");
    std::string_view text;
    ASSERT_TRUE(keys_.verify(topic, payload, text));
    EXPECT_EQ(text, "id=a\n\nA.b=c\n");
    for (std::size_t index = 0; index < payload.size(); ++index) {
        std::string other = payload;
        other[index] = static_cast<char>(other[index] ^ 1);
        EXPECT_FALSE(accepts(other)) << index;
    }
    EXPECT_FALSE(accepts(payload + "x"));
    EXPECT_FALSE(accepts(payload.substr(0, payload.size() - 1)));
}

TEST_F(Signature, CoversTheTopic) {
    const std::string payload = key_.sign(topic, "id=a\n");
    EXPECT_FALSE(accepts(payload, "veltrancord/1/yard-2/config/desired"));
    EXPECT_FALSE(accepts(payload, "veltrancord/1/yard-1/config/preview"));
}

TEST_F(Signature, IsMissed) {
    EXPECT_FALSE(accepts(""));
    EXPECT_FALSE(accepts("id=a\n"));
    EXPECT_FALSE(accepts("signature=\nid=a\n"));
    EXPECT_FALSE(accepts("signature=" + std::string(88, 'A') + "\nid=a\n"));
    EXPECT_FALSE(accepts("signature=" + std::string(86, 'A') + "==\nid=a\n"));
    EXPECT_FALSE(accepts("signature=" + std::string(86, '!') + "==\nid=a\n"));
}

TEST_F(Signature, OfAnotherKeyIsNone) {
    const operator_key other;
    EXPECT_FALSE(accepts(other.sign(topic, "id=a\n")));
}

TEST_F(Signature, MayBeOfTheSecondKey) {
    const operator_key second;
    const operator_key third;
    EXPECT_TRUE(keys_.add(second.public_pem()));
    EXPECT_TRUE(accepts(second.sign(topic, "id=a\n")));
    EXPECT_TRUE(accepts(key_.sign(topic, "id=a\n")));
    EXPECT_FALSE(keys_.add(third.public_pem()));
    EXPECT_FALSE(accepts(third.sign(topic, "id=a\n")));
}

TEST(OperatorKeys, AcceptNothingWithoutAKey) {
    const operator_key key;
    const operator_keys none;
    std::string_view text;
    EXPECT_TRUE(none.empty());
    EXPECT_FALSE(none.verify(topic, key.sign(topic, "id=a\n"), text));
}

TEST(OperatorKeys, AreOfEd25519) {
    operator_keys keys;
    EXPECT_FALSE(keys.add(""));
    EXPECT_FALSE(keys.add("-----BEGIN PUBLIC KEY-----\nAAAA\n-----END PUBLIC KEY-----\n"));
    EVP_PKEY* const curve = EVP_EC_gen("P-256");
    BIO* const memory = BIO_new(BIO_s_mem());
    ASSERT_EQ(PEM_write_bio_PUBKEY(memory, curve), 1);
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory, &text);
    EXPECT_FALSE(keys.add({text, static_cast<std::size_t>(size)}));
    BIO_free(memory);
    EVP_PKEY_free(curve);
    EXPECT_TRUE(keys.empty());
}

TEST(Digest, IsSha256) {
    EXPECT_EQ(digest_of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digest_of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_TRUE(is_digest(digest_of("abc")));
    EXPECT_FALSE(is_digest("abc"));
    EXPECT_FALSE(is_digest(std::string(64, 'A')));
}

}  // namespace
}  // namespace veltrancord::bridge
