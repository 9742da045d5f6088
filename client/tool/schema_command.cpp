// schema check, schema draft, schema doc: the descriptions of settings themselves.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "document_shape.h"
#include "exit_status.h"
#include "file_name.h"
#include "question.h"
#include "schema/check.h"
#include "schema/description_set.h"
#include "schema_draft.h"
#include "schema_files.h"
#include "schema_manual.h"

namespace veltrancord::tool {
namespace {

struct schema_options {
    std::string directory;
    std::string target;
    std::string language;
};

using document_list = std::vector<const schema::document_description*>;

// Reads all descriptions of the directory. Return: exit_done, or what was said.
int read_all(context& tool, schema::description_set& set, document_list& documents) {
    const std::vector<std::string> names = set.documents();
    struct stat status {};
    if (names.empty() && stat(set.directory().c_str(), &status) != 0) {
        return tool.fail_file(set.directory());
    }
    if (names.empty()) {
        return tool.fail_with(exit_not_found, set.directory(), "has no file Document.xsd");
    }
    for (const std::string& name : names) {
        const schema::document_description* const one = set.document(name);
        if (one != nullptr) {
            documents.push_back(one);
        }
    }
    return exit_done;
}

int report(context& tool, const std::vector<schema::mistake>& mistakes) {
    json list = json::array();
    for (const schema::mistake& one : mistakes) {
        list.push_back({{"file", one.file}, {"line", one.line}, {"text", one.text}});
    }
    if (!tool.print_for_programs(list)) {
        for (const schema::mistake& one : mistakes) {
            tool.print(one.file + ":" + std::to_string(one.line) + ": ");
            tool.print(tool.coloured("33", one.text));
            tool.end_line();
        }
    }
    return mistakes.empty() ? exit_done : exit_differs;
}

int run_schema_check(context& tool, const std::string& directory) {
    schema::description_set set(directory.empty() ? tool.schema_directory : directory);
    document_list documents;
    const int status = read_all(tool, set, documents);
    if (status != exit_done) {
        return status;
    }
    std::vector<schema::mistake> mistakes = set.mistakes();
    for (const auto* one : documents) {
        schema::look_over(*one, set.directory() + "/" + one->name + ".xsd", mistakes);
    }
    tool.detail(std::to_string(documents.size()) + " descriptions were read");
    return report(tool, mistakes);
}

// Files that are there are left alone: somebody may have worked on them for days.
int write_new(context& tool, const std::string& file, const std::string& text) {
    if (create_file(file, text)) {
        tool.detail("wrote " + file);
        return exit_done;
    }
    return errno == EEXIST
               ? tool.fail_with(exit_refused, file, "is there already, and is left as it is")
               : tool.fail_file(file);
}

int run_schema_draft(context& tool, const schema_options& options) {
    std::vector<std::string> names;
    if (!document_names(options.directory, names)) {
        return tool.fail_file(options.directory);
    }
    int result = exit_done;
    for (const std::string& name : names) {
        std::string text;
        std::string problem;
        std::size_t line = 0;
        TiXmlDocument document;
        if (!read_input(options.directory + "/" + name, text)) {
            result = tool.fail_file(options.directory + "/" + name);
            continue;
        }
        if (!schema::read_document(std::move(text), document, problem, line)) {
            std::string place = name;
            place.append(": line ").append(std::to_string(line));
            tool.note(place.append(": is not read: ").append(problem));
            result = exit_failed;
            continue;
        }
        const document_shape shape = shape_of(*document.RootElement());
        const int written =
            write_new(tool, options.target + "/" + name + ".xsd", draft_description(shape));
        result = written == exit_done ? result : written;
    }
    return result;
}

int run_schema_doc(context& tool, const schema_options& options) {
    schema::description_set set(options.directory.empty() ? tool.schema_directory
                                                          : options.directory);
    document_list documents;
    const int status = read_all(tool, set, documents);
    if (status != exit_done) {
        return status;
    }
    if (!set.mistakes().empty()) {
        const schema::mistake& first = set.mistakes().front();
        return tool.fail_with(exit_failed, first.file,
                              first.text + "; see veltrancordctl schema check");
    }
    if (!make_file(options.target + "/settings.html", html_manual(documents, options.language))) {
        return tool.fail_file(options.target + "/settings.html");
    }
    for (const auto* one : documents) {
        const std::string file = options.target + "/" + one->name + ".md";
        if (!make_file(file, markdown_manual(*one, options.language))) {
            return tool.fail_file(file);
        }
    }
    return exit_done;
}

}  // namespace

void add_schema_command(subcommand app, context& tool) {
    const auto options = std::make_shared<schema_options>();
    subcommand schema = app.add_subcommand("schema", "check and make descriptions of settings");
    schema.require_subcommand(1);

    subcommand check = schema.add_subcommand("check", "tell the mistakes in descriptions");
    check.add_option("DIR", options->directory, "their directory, as --schema if not given");
    check.callback([&tool, options] {
        tool.run = [&tool, options] { return run_schema_check(tool, options->directory); };
    });

    subcommand draft = schema.add_subcommand("draft", "make first descriptions from documents");
    draft.add_option("DIR", options->directory, "the directory of the documents").required();
    draft.add_option("TARGET", options->target, "the directory for the descriptions").required();
    draft.callback([&tool, options] {
        tool.run = [&tool, options] { return run_schema_draft(tool, *options); };
    });

    subcommand doc = schema.add_subcommand("doc", "make a manual of all settings");
    doc.add_option("TARGET", options->target, "the directory for settings.html and Markdown")
        .required();
    doc.add_option("DIR", options->directory, "of the descriptions, as --schema if not given");
    options->language = "en";
    doc.add_option("--language", options->language, "as xml:lang has it, en by default");
    doc.callback([&tool, options] {
        tool.run = [&tool, options] { return run_schema_doc(tool, *options); };
    });
}

}  // namespace veltrancord::tool
