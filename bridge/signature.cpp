#include "signature.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <utility>

#include "text_line.h"

namespace veltrancord::bridge {
namespace {

constexpr std::size_t signature_bytes = 64;
constexpr std::size_t signature_text = 88;  // its base64 form: 22 groups of four
constexpr std::size_t padded_bytes = 66;    // what those decode to, the padding as zeros
using signature_block = std::array<unsigned char, padded_bytes>;

struct bio_releaser {
    void operator()(BIO* one) const { BIO_free(one); }
};
struct context_releaser {
    void operator()(EVP_MD_CTX* one) const { EVP_MD_CTX_free(one); }
};

const unsigned char* bytes_of(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

bool decode_signature(std::string_view text, signature_block& bytes) {
    return text.size() == signature_text && text.ends_with("==") &&
           EVP_DecodeBlock(bytes.data(), bytes_of(text), static_cast<int>(text.size())) ==
               static_cast<int>(padded_bytes);
}

}  // namespace

void operator_keys::key_releaser::operator()(EVP_PKEY* key) const {
    EVP_PKEY_free(key);
}

bool operator_keys::add(std::string_view pem) {
    const std::unique_ptr<BIO, bio_releaser> memory(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    std::unique_ptr<EVP_PKEY, key_releaser> key(
        memory != nullptr ? PEM_read_bio_PUBKEY(memory.get(), nullptr, nullptr, nullptr) : nullptr);
    if (key == nullptr || EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_ED25519 ||
        keys_.size() == max_keys) {
        return false;
    }
    keys_.push_back(std::move(key));
    return true;
}

bool operator_keys::verify(std::string_view topic, std::string_view payload,
                           std::string_view& signed_text) const {
    std::string_view line;
    named_value first;
    signature_block signature{};
    if (!next_line(payload, line) || !split_line(line, first) || first.name != "signature" ||
        !decode_signature(first.value, signature)) {
        return false;
    }
    const std::string covered = std::string(topic).append("\n").append(payload);
    signed_text = payload;
    return std::any_of(keys_.begin(), keys_.end(), [&](const auto& key) {
        const std::unique_ptr<EVP_MD_CTX, context_releaser> context(EVP_MD_CTX_new());
        return context != nullptr &&
               EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
               EVP_DigestVerify(context.get(), signature.data(), signature_bytes, bytes_of(covered),
                                covered.size()) == 1;
    });
}

}  // namespace veltrancord::bridge
