// What a reader can live with, and a product should not: gaps, guesses, patterns that do not
// compile.
#include <algorithm>

#include "schema/reader.h"

namespace veltrancord::schema {
namespace {

class inspection {
  public:
    inspection(const std::string& file, std::vector<mistake>& mistakes)
        : file_(file), mistakes_(mistakes) {}

    void look_at(const element_description& element) {
        if (element.told.guess) {
            tell(element.line, element.name +
                                   " is a guess of \"schema draft\"; look at it, and "
                                   "take <guess/> away");
        }
    }

    void look_at(const complex_type& type) {
        for (const element_description& one : type.elements) {
            look_at(one);
        }
        for (const family& one : families_of(type)) {
            look_at(one);
        }
    }

    void look_at(const simple_type& type, std::size_t line) {
        for (const std::vector<pattern>& step : type.patterns) {
            for (const pattern& one : step) {
                std::string problem;
                if (!one.compile(problem)) {
                    tell(line, "the pattern " + one.text() + " " + problem);
                }
            }
        }
    }

  private:
    void tell(std::size_t line, const std::string& text) {
        mistakes_.push_back({file_, line, text});
    }

    void look_at(const family& numbered) {
        const uint32_t first = std::min<uint32_t>(numbered.first, 1);
        uint32_t expected = first;
        const element_description& model = *numbered.members.front();
        for (const element_description* member : numbered.members) {
            std::string_view base;
            uint32_t number = 0;
            static_cast<void>(split_number(member->name, base, number));
            if (number > expected) {
                tell(member->line, "the family " + numbered.base + " has a gap: " + numbered.base +
                                       std::to_string(expected) + " is missing before " +
                                       member->name);
            }
            expected = number + 1;
            if (member->structure != model.structure || member->value != model.value) {
                tell(member->line, member->name + " is of another type than " + model.name +
                                       "; a family has one type, with a name");
            }
        }
    }

    const std::string& file_;
    std::vector<mistake>& mistakes_;
};

}  // namespace

void look_over(const document_description& document, const std::string& file,
               std::vector<mistake>& mistakes) {
    std::vector<mistake> found;
    inspection look(file, found);
    look.look_at(document.root);
    for (const auto& type : document.complex_types) {
        look.look_at(*type);
    }
    for (const auto& type : document.simple_types) {
        look.look_at(*type, document.root.line);
    }
    std::stable_sort(found.begin(), found.end(), [](const mistake& left, const mistake& right) {
        return left.line < right.line;
    });
    mistakes.insert(mistakes.end(), found.begin(), found.end());
}

}  // namespace veltrancord::schema
