// Whether values and documents are as they are described.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "schema/description_set.h"

namespace veltrancord::schema {

// The rules by the words that programs get; those of values are called as in the description.
namespace rule {
inline constexpr const char* type = "type";  // is none of its built-in type: "14o0" is no number
inline constexpr const char* enumeration = "enumeration";
inline constexpr const char* min_inclusive = "minInclusive";
inline constexpr const char* max_inclusive = "maxInclusive";
inline constexpr const char* min_length = "minLength";
inline constexpr const char* max_length = "maxLength";
inline constexpr const char* pattern = "pattern";
inline constexpr const char* undescribed = "undescribed";  // no such setting or attribute
inline constexpr const char* missing = "missing";          // a required element or attribute
inline constexpr const char* no_text = "no-text";          // a text where only elements belong
inline constexpr const char* twice = "twice";              // an element that stands there already
inline constexpr const char* order = "order";              // an element behind one that it precedes
}  // namespace rule

// One breach of the description.
struct violation {
    std::string path;       // of the setting, as clients write it
    std::string attribute;  // its name; empty: the text of the element
    const char* rule = "";  // one of the words above
    std::string value;      // what is there; empty for `missing`
    std::string allowed;    // what may be there, for people: "a number from 68 to 9000"
    std::optional<std::string> nearest;  // the nearest that would do: a value, or for `undescribed`
                                         // a path (of an attribute: a name)
    bool secret = false;                 // the value is not for showing
    std::size_t line = 0;                // in the document's file, from 1; 0: not from a file
};

// A sentence without the path and without a full stop: 'is "14o0", and has to be a number from 68
// to 9000; the nearest is 1400'. A secret value is left out.
[[nodiscard]] std::string sentence_of(const violation& one);

// The text of one value, without a path: what it breaks, or nothing. `value` is UTF-8, and white
// space counts as in XML Schema: at the ends of numbers, times and dates it does not.
[[nodiscard]] std::optional<violation> check_text(const simple_type& type,
                                                  const std::string& value);

// One setting that is to be written: also whether there is such a setting at all. An empty value is
// right where the setting has a default. Return: nothing where it is right, or where the document
// has no description.
[[nodiscard]] std::optional<violation> check_value(description_set& set, std::string_view path,
                                                   const std::string& value);

// The attribute of an element that is to be written.
[[nodiscard]] std::optional<violation> check_attribute(description_set& set, std::string_view path,
                                                       std::string_view attribute,
                                                       const std::string& value);

// A whole document: all violations, in the order of its lines. The lines are those of the tree,
// where the parser has kept them (read_document() does).
[[nodiscard]] std::vector<violation> check_document(const document_description& description,
                                                    const TiXmlElement& root);

// The same of several documents in one file, the children of `all`, as "dump" writes them; those
// without a description are passed over.
[[nodiscard]] std::vector<violation> check_documents(description_set& set, const TiXmlElement& all);

// Reads the text of a document with its lines, whatever it holds: nesting is bounded before the
// library sees it. Return: false, with a sentence and the line, where it is not XML.
// Without an encoding it is read in the one that it declares, as the service reads it.
[[nodiscard]] bool read_document(std::string text, TiXmlDocument& document, std::string& problem,
                                 std::size_t& line,
                                 TiXmlEncoding encoding = TIXML_ENCODING_UNKNOWN);

// A setting and what it has by its description.
struct default_setting {
    std::string path;  // as clients write it
    std::string value;
};

// All settings of the document that have a default, in the order of the description.
[[nodiscard]] std::vector<default_setting> defaults_of(const document_description& document);

}  // namespace veltrancord::schema
