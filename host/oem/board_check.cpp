// board_check.cpp - says what is wrong with a board's description, and what it leaves out.
#include <cstdio>
#include <cstring>

#include "description.h"

namespace {

constexpr const char kUsage[] =
    "Usage: board_check FILE...\n"
    "Checks descriptions of boards, as /etc/board.conf is one (docs/board.md has the form).\n"
    "The exit status is 0 where each is right and complete, 1 where one is not: what is wrong\n"
    "is said as FILE:LINE: TEXT, what is left out as FILE: [SECTION] has no KEY.\n";

bool say_problem(const char* path, const oem::Description& board) {
    if (board.line() == 0) {
        fprintf(stderr, "%s: %s\n", path, board.problem());
    } else {
        fprintf(stderr, "%s:%d: %s\n", path, board.line(), board.problem());
    }
    return false;
}

bool check(const char* path) {
    oem::Description board;
    if (!board.read(path)) return say_problem(path, board);
    int omissions = 0;
    for (oem::Description::Omission omission; board.omission(omissions, &omission); omissions++) {
        fprintf(stderr, "%s: [%s] has no %s\n", path, omission.heading, omission.key);
    }
    return omissions == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc < 2) {
        fputs(kUsage, stderr);
        return 2;
    }
    bool right = true;
    for (int i = 1; i < argc; i++) {
        right = check(argv[i]) && right;
    }
    return right ? 0 : 1;
}
