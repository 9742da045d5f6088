// What a product's engineer has written down of the settings of one document: which there are, what
// each may hold, and what people are told of it. The model of a file "<Document>.xsd";
// docs/schema.md tells what may stand in one.
//
// Made by the reader (schema/reader.h) and never changed afterwards, so any thread may read it. All
// pointers in it are borrowed from the document_description, which owns all types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "schema/pattern.h"

namespace veltrancord::schema {

// A text for people in one language.
struct localised_text {
    std::string language;  // as xml:lang has it, "de", "pt-BR"; empty: for all
    std::string text;      // UTF-8, white space condensed
};

// What is told of an element, a type, an attribute or one value of an enumeration.
struct notes {
    std::vector<localised_text> labels;  // in the order of the file, each language once
    std::vector<localised_text> helps;
    std::string unit;          // "ms"; empty: none
    std::string group;         // of a form; empty: none
    std::optional<int> order;  // place in a form, small first
    bool secret = false;
    bool guess = false;  // made by "schema draft", and not looked at by anybody yet

    // The text in that language ("de_DE.UTF-8" and "de" name the same), else in English, else the
    // first; empty where there is none.
    [[nodiscard]] std::string_view label(std::string_view language) const;
    [[nodiscard]] std::string_view help(std::string_view language) const;
};

enum class value_kind : uint8_t { string, boolean, integer, decimal, time, date };

struct allowed_value {
    std::string value;
    notes told;
};

// What a text may be. Facets of the types that it was derived from are in it already.
struct simple_type {
    std::string name;       // empty: described in its place
    std::string base_name;  // the built-in type below it, without prefix: "unsignedShort"
    value_kind kind = value_kind::string;
    std::optional<std::string> least;       // inclusive; numbers in their shortest form. Of a type
    std::optional<std::string> most;        // with a width ("int") both are there
    std::optional<std::size_t> min_length;  // in characters
    std::optional<std::size_t> max_length;
    std::vector<allowed_value> values;           // of an enumeration; none: no enumeration
    std::vector<std::vector<pattern>> patterns;  // of each list at least one must match
    notes told;
};

struct attribute_description {
    std::string name;
    bool required = false;
    const simple_type* type = nullptr;  // never null
    std::optional<std::string> default_value;
    notes told;
};

struct complex_type;

// One element, as the file names it: encoded as documents are, "Zone_20A".
struct element_description {
    std::string name;
    bool required = true;                     // minOccurs is not 0
    const simple_type* value = nullptr;       // what its text may be; null: a branch, without text
    const complex_type* structure = nullptr;  // its elements and attributes; null: has none
    std::optional<std::string>
        default_value;     // what an element that is missing or empty stands for
    std::size_t line = 0;  // in the file, from 1
    notes told;            // what it does not tell itself is taken from its type

    [[nodiscard]] bool secret() const;  // as marked here or by its type, or named "Password"
    // Null where there is none of that name.
    [[nodiscard]] const element_description* child(std::string_view stored_name) const;
    [[nodiscard]] const attribute_description* attribute(std::string_view attribute_name) const;
};

struct complex_type {
    std::string name;      // empty: described in its place
    bool ordered = false;  // xs:sequence: elements stand in the order of the file
    std::vector<element_description> elements;  // in the order of the file
    std::vector<attribute_description> attributes;
    const simple_type* text = nullptr;  // null: no text
    std::vector<std::size_t> by_name;   // indexes of `elements`, in the order of their names
    std::size_t line = 0;
    notes told;
};

// Elements of one type, numbered: "User1" to "User20".
struct family {
    std::string base;  // "User"
    uint32_t first = 0;
    uint32_t last = 0;
    std::vector<const element_description*> members;  // by rising number; gaps are possible
};

// The families among the elements of a type, in the order in which they begin. One element alone is
// none, and neither are "Ipv4" and "Ipv6": a family begins with 0 or 1, or has at least three.
[[nodiscard]] std::vector<family> families_of(const complex_type& type);

// Splits "User12" into "User" and 12. Return: false when there is no number without leading zeros,
// of at most 9 digits, behind a name.
[[nodiscard]] bool split_number(std::string_view name, std::string_view& base, uint32_t& number);

struct document_description {
    std::string name;  // of the document: that of its root element
    element_description root;
    // All types, for whom the pointers above are valid.
    std::vector<std::unique_ptr<const simple_type>> simple_types;
    std::vector<std::unique_ptr<const complex_type>> complex_types;
};

// One setting of a document: its path as a client writes it ("Motion.Channel1.Zone A.Area"), and
// what describes it.
struct described_setting {
    std::string path;
    const element_description* element = nullptr;
};

// All elements that may hold a text, or that have neither text nor elements, in the order of the
// description. Many: families count each of their members.
[[nodiscard]] std::vector<described_setting> settings_of(const document_description& document);

// What an element's type is, for people, in English: "a number from 68 to 9000", "one of YES, NO";
// of a type with a pattern its label, where it has one.
[[nodiscard]] std::string type_text(const simple_type& type);

// The component of a path by which clients name an element, and the other way round: "Zone_20A" is
// "Zone A" to clients.
[[nodiscard]] std::string client_name(std::string_view stored_name);
[[nodiscard]] std::string stored_name(std::string_view client_name);

}  // namespace veltrancord::schema
