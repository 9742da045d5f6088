// The argument of the write commands: cut against a cutter of the simplest kind, and applied to a
// document whose answer for each line is told beforehand.
#include <string>
#include <vector>

#include "fuzz_target.h"
#include "leaf/result.h"
#include "saved_form.h"
#include "store/document_set.h"
#include "store/path.h"
#include "store/value.h"
#include "update/handlers.h"
#include "update/lines.h"
#include "update/program_queue.h"
#include "update/write_lines.h"

namespace veltrancord::fuzz {
namespace {

struct simple_line {
    std::string path;
    std::string value;
};

// One character after the other, as the manual tells it.
std::vector<simple_line> simple_lines(std::string_view argument) {
    std::vector<simple_line> lines;
    simple_line line;
    bool in_value = false;
    for (const char c : argument) {
        if (!in_value && c == '=') {
            in_value = true;
        } else if (in_value && c == '\n') {
            lines.push_back(line);
            line = {};
            in_value = false;
        } else {
            (in_value ? line.value : line.path) += c;
        }
    }
    if (in_value) {
        lines.push_back(line);
    }
    return lines;
}

// What applying the line must answer; the store holds the document "A" alone.
int32_t expected_result(const simple_line& line, std::size_t longest_value) {
    XmlPath path;
    if (line.path.size() > 255 || line.value.size() > longest_value ||
        !SplitXmlPath(line.path, path)) {
        return result_bad_argument;
    }
    if (path[0].Text() != "A") {
        return result_not_found;
    }
    // The elements at hand have sound names, so one with another name would be a new one.
    for (std::size_t i = 1; i < path.size() && longest_value > 255; ++i) {
        const std::string_view name = path[i].Text();
        const char first = name.front();
        if (first == '-' || (first >= '0' && first <= '9') || name.find('*') != name.npos) {
            return result_store_failed;
        }
    }
    // The stored form of a secret has 255 characters at most: 7 or 8 of head, the rest base64.
    if (longest_value > 255 && IsSecretName(XmlPathLast(path))) {
        const std::size_t kept = line.value.size() % 256;
        const std::size_t stored = 5 + std::to_string(kept).size() + (kept + 2) / 3 * 4;
        return stored > 255 ? result_store_failed : result_ok;
    }
    return result_ok;
}

void check_cutting(std::string_view argument) {
    update_lines lines(argument);
    update_line line;
    for (const simple_line& expected : simple_lines(argument)) {
        require(lines.next(line), "a line is missing");
        require(line.path == expected.path && line.value == expected.value, "a line");
    }
    require(!lines.next(line), "a line too many");
}

void load_document() {
    auto document = std::make_unique<XmlDocument>("A");
    require(document->LoadXMLFile("<A x=\"1\"><B y=\"2\">text</B><B><C/></B></A>"), "the document");
    AddXmlDocNode("A", "/nowhere/A", std::move(document));
}

void check_elements(std::string_view argument) {
    load_document();
    int32_t expected = argument.empty() ? result_bad_argument : 0;
    for (const simple_line& line : simple_lines(argument)) {
        const int32_t result = expected_result(line, 4095);
        if (result < 0) {
            expected = result;
            break;
        }
        ++expected;
    }
    require(write_lines(argument, true) == expected, "the result of write");
    require(queued_programs() == 0, "no element names a program");
    check_saved_form(*FindXmlDoc("A"));
    FreeXmlDocs();
}

// An attribute's line may fail for want of its element too; so the count is only bounded.
void check_attributes(std::string_view argument) {
    load_document();
    int32_t most = 0;
    bool refused = argument.empty();
    for (const simple_line& line : simple_lines(argument)) {
        if (expected_result(line, 255) < 0) {
            refused = true;
            break;
        }
        ++most;
    }
    const int32_t result = writeattr_lines(argument);
    require(result <= most && !(refused && result >= 0), "the result of writeattr");
    check_saved_form(*FindXmlDoc("A"));
    FreeXmlDocs();
}

}  // namespace

void try_input(input_reader& input) {
    const std::string_view argument = up_to_nul(input.rest());
    check_cutting(argument);
    check_elements(argument);
    check_attributes(argument);
}

}  // namespace veltrancord::fuzz
