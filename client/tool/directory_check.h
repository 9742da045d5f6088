// Looks a configuration directory over as the service would load it, without changing a byte of it.
#pragma once

#include <string>
#include <vector>

#include "schema/description_set.h"

namespace veltrancord::tool {

struct finding {
    std::string file;   // name in the directory; of an event log its path
    std::string place;  // path of the setting, or empty
    std::string kind;   // a stable word, for programs: "unparsable", "plain-secret" ...
    std::string text;   // a sentence for people
};

// Loads the documents of `directory` into the store (they stay there, for further questions) and
// collects what is wrong with files. Return: false with errno set when it cannot be read.
bool check_files(const std::string& directory, std::vector<finding>& findings);

// Collects what is wrong with the file of an event log; one that is not there is none.
void check_log(const std::string& file, std::vector<finding>& findings);

// Collects what is wrong among the settings of the loaded documents.
void check_settings(std::vector<finding>& findings);

// Collects what among permits, groups, users and deny rules the service does not read, or never
// decides by; asked of its own routines, on the loaded documents.
void check_permits(std::vector<finding>& findings);

// Collects what in the documents of `directory` is not as it is described, and the mistakes of
// their descriptions. A document without one is right.
void check_descriptions(const std::string& directory, schema::description_set& descriptions,
                        std::vector<finding>& findings);

}  // namespace veltrancord::tool
