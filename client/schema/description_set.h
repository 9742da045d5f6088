// The descriptions of a directory, each file read when it is first asked for.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "schema/reader.h"

namespace veltrancord::schema {

// Used by one thread at a time. What it hands out lives as long as it does.
class description_set {
  public:
    explicit description_set(std::string directory) : directory_(std::move(directory)) {}

    [[nodiscard]] const std::string& directory() const { return directory_; }

    // The documents that have a file, sorted by name; none where the directory cannot be read.
    [[nodiscard]] std::vector<std::string> documents() const;

    // Return: null where there is no file "<name>.xsd", or it has mistakes: see mistakes().
    const document_description* document(const std::string& name);

    // What describes the place of a path: "Network.Lan.Mtu", "Network". Components are written as
    // for the service: a blank as such, empty components dropped.
    //
    // Return: null where nothing does; is_described() tells whether the document has a description.
    const element_description* find(std::string_view path);

    // The settings of all levels on the way: the document's root first, the element itself last.
    // Empty where find() gives null.
    std::vector<const element_description*> way_to(std::string_view path);

    // Whether the document that the path leads into has a description without mistakes.
    bool is_described(std::string_view path);

    // The mistakes of the files read so far.
    [[nodiscard]] const std::vector<mistake>& mistakes() const { return mistakes_; }

  private:
    std::string directory_;
    std::map<std::string, std::unique_ptr<const document_description>, std::less<>> loaded_;
    std::vector<mistake> mistakes_;
};

// Cuts a path at its dots; empty components are dropped, the others are as documents have them.
[[nodiscard]] std::vector<std::string> stored_components(std::string_view path);

}  // namespace veltrancord::schema
