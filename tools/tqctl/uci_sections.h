// uci_sections.h - the sections that a session has loaded, and how a command line spells them.
#pragma once

#include <uci.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace tqctl {

// The longest name of a section as a path spells it, beyond which it is cut.
inline constexpr size_t kSpellingSize = 256;

// Calls visit for every element of a list.
template <typename Visit>
void for_each(uci_list& list, Visit visit) {
    uci_element* element = nullptr;
    uci_foreach_element(&list, element) visit(*element);
}

// A section as a path spells it: its name, or @TYPE[N].
class Spelling {
  public:
    explicit Spelling(uci_section& section) : section_(section) {
        int index = 0;
        bool reached = false;
        for_each(section.package->sections, [&](uci_element& element) {
            const uci_section* other = uci_to_section(&element);
            reached = reached || other == &section;
            if (!reached && strcmp(other->type, section.type) == 0) index++;
        });
        snprintf(position_, sizeof(position_), "@%s[%d]", section.type, index);
    }
    [[nodiscard]] const char* c_str() const {
        return section_.anonymous ? position_ : section_.e.name;
    }
    [[nodiscard]] bool is(const char* spelling) const {
        return strcmp(spelling, section_.e.name) == 0 || strcmp(spelling, position_) == 0;
    }

  private:
    const uci_section& section_;
    char position_[kSpellingSize];
};

}  // namespace tqctl
