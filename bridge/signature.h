// Who sent it: the operator's signature over a message.
//
// The payload's first line is "signature=" and the base64 form of an Ed25519 signature; it covers
// the topic, a line feed and all that follows that line, byte for byte. So a message for one device
// or of one kind is none for another, and nothing of it is read before it is known whose it is.
#pragma once

#include <openssl/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace veltrancord::bridge {

class operator_keys {
  public:
    static constexpr std::size_t max_keys = 2;  // the second for the time of a change-over

    // Adds a public key in PEM form. Return: false for what is none of Ed25519, and for a third.
    [[nodiscard]] bool add(std::string_view pem);

    [[nodiscard]] bool empty() const { return keys_.empty(); }

    // Takes the signature off `payload`, received under `topic`. Return: whether one of the keys
    // has made it; `signed_text` then is what it covers, within the payload.
    [[nodiscard]] bool verify(std::string_view topic, std::string_view payload,
                              std::string_view& signed_text) const;

  private:
    struct key_releaser {
        void operator()(EVP_PKEY* key) const;
    };

    std::vector<std::unique_ptr<EVP_PKEY, key_releaser>> keys_;
};

}  // namespace veltrancord::bridge
