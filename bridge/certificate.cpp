#include "certificate.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <array>
#include <memory>

#include "topics.h"

namespace veltrancord::bridge {
namespace {

struct bio_releaser {
    void operator()(BIO* one) const { BIO_free(one); }
};
struct certificate_releaser {
    void operator()(X509* one) const { X509_free(one); }
};
using owned_certificate = std::unique_ptr<X509, certificate_releaser>;

owned_certificate read_certificate(const std::string& file) {
    const std::unique_ptr<BIO, bio_releaser> source(BIO_new_file(file.c_str(), "r"));
    return owned_certificate(
        source != nullptr ? PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr) : nullptr);
}

}  // namespace

std::string read_common_name(const std::string& file, std::string& name) {
    const owned_certificate certificate = read_certificate(file);
    if (certificate == nullptr) {
        return file + ": cannot be read, or is no certificate";
    }
    std::array<char, max_device_name + 2> text{};  // one more, to tell a name that is too long
    const int length =
        X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName,
                                  text.data(), static_cast<int>(text.size()));
    if (length <= 0) {
        return file + ": has no common name";
    }
    name.assign(text.data(), static_cast<std::size_t>(length));
    return {};
}

std::string read_not_after(const std::string& file, std::time_t& not_after) {
    const owned_certificate certificate = read_certificate(file);
    std::tm broken_down{};
    if (certificate == nullptr ||
        ASN1_TIME_to_tm(X509_get0_notAfter(certificate.get()), &broken_down) != 1) {
        return file + ": cannot be read, or is no certificate";
    }
    not_after = timegm(&broken_down);
    return {};
}

}  // namespace veltrancord::bridge
