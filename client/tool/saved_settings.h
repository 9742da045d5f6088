// Whether the service's files hold what the service holds. Its reply says that a change was
// applied, and cannot say that its file could not be saved, as on a full disk; who may read the
// files can look.
#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

// A document whose file holds something else than the service.
struct unsaved_document {
    std::string name;
    std::string file;
    std::string place;  // the first setting or attribute that differs
};

struct save_report {
    std::vector<unsaved_document> unsaved;
    std::vector<std::string> unseen;  // documents whose file may not be read
    std::size_t documents = 0;        // that the service holds with a text in them
};

// What the service holds, to compare with what the files hold later.
struct held_settings {
    setting_list settings;
    setting_list attributes;
};

// Reads all that the service holds. Return: the result; a failure leaves `held` as it is.
int32_t read_held_settings(context& tool, held_settings& held);

// Compares all documents with the files of `directory`. A setting that has changed since `earlier`
// was read counts as saved when its file holds the earlier value: others may change it meanwhile.
//
// Return: VELTRANCORD_OK, or why the service could not be asked.
int32_t compare_with_files(context& tool, const std::string& directory,
                           const held_settings* earlier, save_report& report);

// After a write that the service has acknowledged: looks whether the files hold it, and says so
// where not. Where the files may not be read it says nothing.
//
// Return: exit_done, or exit_not_saved after a message.
int check_saved(context& tool, const setting_list& written);

// Says which of the documents wait to be saved. Return: exit_done when there is none, else
// exit_not_saved.
int tell_unsaved(context& tool, const std::vector<unsaved_document>& unsaved);

// The value as it is once the file that it was saved in has been loaded: the XML library drops some
// blanks.
std::string value_as_loaded(const std::string& value);

}  // namespace veltrancord::tool
