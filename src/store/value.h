// Finding an element by path, and reading its value.
#pragma once

#include <string.h>
#include <strings.h>
#include <tinyxml.h>

#include <cstdint>
#include <string_view>

#include "encoding/secret.h"
#include "store/path.h"
#include "xml/element_text.h"

namespace veltrancord {

// Selects an element depth-first from `first` and its following siblings, with backtracking: where
// an element of the right name does not hold the rest of the path, a later one of that name may.
//
// Return: the element, owned by its document, or null.
[[nodiscard]] TiXmlElement* FindXmlElement(TiXmlElement* first, const XmlPath& list);

// Whether the name is "Password" in any case: such values are kept in "enc:" form.
// In line up to the length, since listings ask for it at every element.
[[nodiscard]] inline bool IsSecretName(std::string_view name) {
    constexpr std::string_view secret_name = "Password";
    return name.size() == secret_name.size() &&
           strncasecmp(name.data(), secret_name.data(), secret_name.size()) == 0;
}

// Decodes the stored form of a secret into `plain` and gives the plain text, which is empty where
// nothing can be decoded. Valid until `plain` changes.
[[nodiscard]] std::string_view DecodeSecret(std::string_view stored,
                                            char (&plain)[secret_text_size]);

// A value that was looked up. `text` points into the document or at `plain` below, and is valid
// until either changes.
struct XmlValue {
    std::string_view text;
    char plain[secret_text_size];  // the decoded form of a secret

    XmlValue() { plain[0] = '\0'; }
    ~XmlValue() {
        if (plain[0] != '\0') {
            explicit_bzero(plain, sizeof plain);
        }
    }
    XmlValue(const XmlValue&) = delete;
    XmlValue& operator=(const XmlValue&) = delete;
};

// Looks up one setting; a secret is decoded into `out`.
//
// Return: the length of the stored text (for a secret that of its "enc:" form, though the text is
// the plain one: clients rely on the length), result_not_found or result_bad_argument (a path that
// does not split, or a wildcard).
[[nodiscard]] int32_t ReadXmlValue(std::string_view path, XmlValue& out);

}  // namespace veltrancord
