#include "faults/sweep.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

namespace tq_test::sweep {

const std::vector<Row>& rows() {
    static const std::vector<Row> all = [] {
        std::vector<Row> rows;
        for (auto* part : {foundation_rows, uci_rows, wifi_rows, eloop_rows, netlink_rows, bus_rows,
                           records_rows, flash_rows, sysinfo_rows, ini_rows})
            std::ranges::move(part(), std::back_inserter(rows));
        return rows;
    }();
    return all;
}

std::string key_of(const Row& row) {
    return row.how.empty() ? row.function : row.function + ", " + row.how;
}

std::string number(intptr_t result) {
    return std::to_string(result);
}

std::string with_text(intptr_t result, const char* text) {
    return number(result) + " " + text;
}

std::string with_number(intptr_t result, long long value) {
    return number(result) + " " + std::to_string(value);
}

Row pure(std::string function, std::function<intptr_t()> call, std::string gives) {
    return {.function = std::move(function), .call = std::move(call), .gives = std::move(gives)};
}

std::vector<Stated> where_libuci_may_do_without(const Row& row) {
    std::vector<Stated> stated;
    for (const char* call : {"stat", "fstat", "access"})
        stated.push_back({call, row.gives + "|" + row.fails});
    return stated;
}

int in_child(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace tq_test::sweep
