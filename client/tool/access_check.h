// What is wrong with an access file, as the service reads it.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "guard/policy.h"

namespace veltrancord::tool {

struct access_finding {
    std::size_t line = 0;  // from 1; 0: the file as a whole
    std::string text;
    bool obeyed = false;  // the service goes by the file all the same
};

// The user that a process runs as; root for process 0, and where that is not told.
uid_t user_of_process(int process);

// Everything that keeps a service of the user `own_user` from obeying the file, whoever owns it and
// whatever it holds; and of a file without a mistake the rules that never decide, since those
// before them always do. Names are looked up here. Return: false with errno set where it cannot be
// read.
bool check_access_file(const std::string& file, uid_t own_user,
                       std::vector<access_finding>& findings);

// Reads the file without a look at who owns it. Return: false with errno set.
bool parse_access_file(const std::string& file, parsed_policy& parsed, std::string& text);

// Documents that stand for all there may be: the empty name for none, every one that a rule names,
// and one that none names.
std::set<std::string> told_documents(const access_policy& policy);

// Such a document for people: the one that no rule names is "(any other)".
std::string shown_document(const access_policy& policy, const std::string& document);

// The lines of the rules that never decide anything, whoever asks for whatever.
std::vector<std::size_t> idle_rules(const access_policy& policy);

}  // namespace veltrancord::tool
