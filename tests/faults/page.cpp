#include "faults/page.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "faults/sweep.h"
#include "support/device.h"

namespace tq_test::sweep {
namespace {

const std::string kIntroduction =
    R"(# What happens when a call fails

`./run faults` runs every exported function with its first system call failing, then its second, and so on to its last, and its
allocations likewise; and it writes this page. Each outcome is what the function's header states, nothing is left behind,
neither memory nor a descriptor, and the same call works afterwards on the same state. `tests/faults/` says for each function
what is prepared, what the outcome is when a call fails, and which failures change nothing.

A call is one into the C library or libnl, made by libtq or by what of the firmware's it is built on (`host/`). It fails with
its usual error; a `read` is also interrupted by a signal, and a `write` also writes half. A failure is tolerated where the
function does its work all the same, as when a descriptor cannot be closed. Functions that talk to a service make as many calls
as its answers come in pieces. The figures are those of the release build on x86-64.

)";

std::vector<const Row*> rows_of(const std::string& function) {
    std::vector<const Row*> found;
    for (const Row& row : rows()) {
        if (row.function == function) found.push_back(&row);
    }
    return found;
}

bool is_function(const std::string& name) {
    ElfW(Sym)* symbol = nullptr;
    Dl_info info{};
    void* address = dlsym(RTLD_DEFAULT, name.c_str());
    if (!address || !dladdr1(address, &info, reinterpret_cast<void**>(&symbol), RTLD_DL_SYMENT))
        throw std::runtime_error("the library has no " + name);
    return ELF64_ST_TYPE(symbol->st_info) == STT_FUNC;
}

std::string cells(const Count& count) {
    std::ostringstream text;
    text << " | " << count.system_calls << " | " << count.allocations << " | " << count.faults
         << " | " << count.failed << " | " << count.faults - count.failed << " |\n";
    return text.str();
}

constexpr const char* kHeadings =
    " | system calls | allocations | failures tried | of them failed | tolerated |\n"
    "|---|--:|--:|--:|--:|--:|\n";

// How a row is called in the table.
std::string title_of(const Row& row) {
    return "| `" + row.function + (row.how.empty() ? "`" : "`, " + row.how);
}

// The rows of a family, and behind them the functions that make no call.
std::string family_section(const Family& family, const Counts& counts, Count* total) {
    std::ostringstream table;
    std::string quiet;
    for (const std::string& function : family.functions) {
        for (const Row* row : rows_of(function)) {
            const Count& count = counts.at(key_of(*row));
            *total += count;
            if (count.faults > 0) {
                table << title_of(*row) << cells(count);
            } else {
                quiet.append(quiet.empty() ? "`" : ", `").append(function).append("`");
            }
        }
    }
    std::ostringstream text;
    text << "## " << family.name << "\n\n";
    if (!table.str().empty()) text << "| function" << kHeadings << table.str() << "\n";
    if (!quiet.empty()) text << "Without a call that could fail: " << quiet << ".\n\n";
    return text.str();
}

}  // namespace

// What the version script lists, but for the objects.
std::vector<Family> exported_families() {
    std::vector<Family> families;
    std::istringstream script(read_file(TQ_SOURCE_DIR "/src/libtq.map"));
    for (std::string line; std::getline(script, line) && line != "local:";) {
        line.erase(0, line.find_first_not_of(' '));
        if (line.starts_with("# ") && !line.ends_with('.')) {
            families.push_back({line.substr(2), {}});
        } else if (line.ends_with(';') && !families.empty() && line != "*;") {
            line.pop_back();
            if (is_function(line)) families.back().functions.push_back(line);
        }
    }
    return families;
}

std::string page_of(const Counts& counts) {
    std::string totals = std::string("| family") + kHeadings;
    std::string sections;
    Count sum;
    for (const Family& family : exported_families()) {
        Count total;
        sections += family_section(family, counts, &total);
        totals += "| [" + family.name + "](#" + family.name + ")" + cells(total);
        sum += total;
    }
    totals += "| all" + cells(sum) + "\n";
    const std::string text = kIntroduction + totals + sections;
    return text.substr(0, text.size() - 1);
}

std::string without_counts(const std::string& page, Leave leave) {
    std::istringstream stream(page);
    std::string text;
    for (std::string line; std::getline(stream, line);) {
        const bool varies = std::ranges::any_of(rows(), [&](const Row& row) {
            return row.varies && line.starts_with(title_of(row) + " |");
        });
        const bool is_total = line.starts_with("| [") || line.starts_with("| all");
        if (leave == Leave::kNone || varies || is_total)
            line.resize(std::min(line.size(), line.find(" |", 1)));
        text += line + "\n";
    }
    return text;
}

}  // namespace tq_test::sweep
