// An operator's key pair, made anew for a test.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

namespace veltrancord::bridge {

class operator_key {
  public:
    operator_key() : key_(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519")) {
        if (key_ == nullptr) {
            throw std::runtime_error("no key could be made");
        }
    }
    ~operator_key() { EVP_PKEY_free(key_); }
    operator_key(const operator_key&) = delete;
    operator_key& operator=(const operator_key&) = delete;

    [[nodiscard]] std::string public_pem() const {
        BIO* const memory = BIO_new(BIO_s_mem());
        if (PEM_write_bio_PUBKEY(memory, key_) != 1) {
            throw std::runtime_error("the key could not be written");
        }
        char* text = nullptr;
        const long size = BIO_get_mem_data(memory, &text);
        std::string pem(text, static_cast<std::size_t>(size));
        BIO_free(memory);
        return pem;
    }

    // Return: the payload, signed for the topic.
    [[nodiscard]] std::string sign(std::string_view topic, std::string_view text) const {
        const std::string covered = std::string(topic) + "\n" + std::string(text);
        EVP_MD_CTX* const context = EVP_MD_CTX_new();
        std::array<unsigned char, 64> signature{};
        std::size_t length = signature.size();
        if (EVP_DigestSignInit(context, nullptr, nullptr, nullptr, key_) != 1 ||
            EVP_DigestSign(context, signature.data(), &length,
                           reinterpret_cast<const unsigned char*>(covered.data()),
                           covered.size()) != 1) {
            throw std::runtime_error("could not be signed");
        }
        EVP_MD_CTX_free(context);
        std::array<unsigned char, 89> encoded{};
        (void)EVP_EncodeBlock(encoded.data(), signature.data(), static_cast<int>(length));
        return "signature=" + std::string(reinterpret_cast<const char*>(encoded.data())) + "\n" +
               std::string(text);
    }

  private:
    EVP_PKEY* key_;
};

}  // namespace veltrancord::bridge
