// What the readers of a description share: elements of XML Schema by their names without prefix,
// and mistakes with their lines. Nothing is passed over: what a reader has not asked for is a
// mistake.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "schema/reader.h"

namespace veltrancord::schema {

class markup {
  public:
    // Both are borrowed for the life of the object.
    markup(const std::string& file, std::vector<mistake>& mistakes)
        : file_(file), mistakes_(mistakes) {}

    // Finds the prefix of XML Schema in the root element. Return: false, told, when it has none.
    bool find_prefix(const TiXmlElement& root);

    // The name of an element of XML Schema without its prefix; empty for any other element.
    [[nodiscard]] std::string_view name_of(const TiXmlElement& element) const;

    // The built-in type that a reference names, without prefix; empty for a type of the file.
    [[nodiscard]] std::string_view built_in(std::string_view reference) const;

    // A mistake in the line of that node.
    void tell(const TiXmlNode& where, const std::string& text);

    // The attribute's text, or nothing.
    [[nodiscard]] static std::optional<std::string> attribute(const TiXmlElement& element,
                                                              const char* name);

    // Tells of all attributes but these.
    void allow(const TiXmlElement& element, std::initializer_list<const char*> names);

    // Tells of an element that does not belong there, with what to write instead.
    void refuse(const TiXmlElement& element);

    // Calls `take` for each element of XML Schema inside, with its name; tells of all else that
    // stands there, and of what `take` does not know (it returns false then).
    void each_child(
        const TiXmlElement& element,
        const std::function<bool(const TiXmlElement& child, std::string_view name)>& take);

    // A whole number from 0 to 999,999,999. Return: nothing for any other text.
    [[nodiscard]] static std::optional<std::size_t> number(const std::string& text);

    [[nodiscard]] std::size_t count() const { return mistakes_.size(); }

  private:
    const std::string& file_;
    std::vector<mistake>& mistakes_;
    std::string prefix_;  // with its colon
};

// The text inside, of all its pieces, white space condensed by the library.
[[nodiscard]] std::string inner_text(const TiXmlElement& element);

// Reads xs:annotation into `told`.
void read_annotation(markup& xml, const TiXmlElement& annotation, notes& told);

}  // namespace veltrancord::schema
