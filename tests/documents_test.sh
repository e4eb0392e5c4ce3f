#!/bin/sh
# documents_test.sh SOURCE_DIRECTORY - what the documents name is there: the targets of their links, the project's files, the
# program in README.md; and every exported function has a comment in its header.
set -eu
cd "$1"

failures=0

# check NAME COMPLAINTS
check() {
    if [ -z "$2" ]; then
        echo "ok: $1"
        return
    fi
    failures=$((failures + 1))
    echo "FAILED: $1"
    printf '%s\n' "$2" | sed 's/^/  /'
}

documents() {
    find . -path ./build -prune -o -path './.?*' -prune -o -name '*.md' -print
}

# "DOCUMENT TARGET" for each link of a document into the tree.
links() {
    documents | xargs grep -oHE '\]\([^) #:]+[)#]' | sed -e 's/:\](/ /' -e 's/[)#]$//'
}

broken_links() {
    links | while read -r document target; do
        [ -e "$(dirname "$document")/$target" ] || echo "$document: $target"
    done
}

# "DOCUMENT PATH" for each name that begins with a directory of the project; a pattern names what it matches.
named_files() {
    documents | xargs grep -oHE \
        '(^|[^A-Za-z0-9_./-])((\.ci|bench|boards|cmake|docs|examples|fuzz|host|include|packaging|src|tests|tools)/[A-Za-z0-9_./*-]*|\./run)' |
        sed -E -e 's/:[^A-Za-z0-9_.\/]?/ /' -e 's/[.]$//'
}

missing_files() {
    named_files | while read -r document path; do
        # shellcheck disable=SC2086
        ls -d $path >/dev/null 2>&1 || echo "$document: $path"
    done
}

missing_headers() {
    documents | xargs grep -oHE '\btq/[a-z_]+\.h\b' | while IFS=: read -r document header; do
        [ -e "include/$header" ] || [ -e "host/oem/include/$header" ] || echo "$document: $header"
    done
}

# The comment before a declaration goes for all that follow without an empty line.
undocumented() {
    awk 'FNR == 1 { documented = 0 }
        /\*\/$/ { documented = 1 }
        /^$/ { documented = 0 }
        /TQ_API .*[a-z_0-9]\(/ && !documented { print FILENAME ":" FNR ": " $0 }' include/tq/*.h
}

# The first C program in a document.
program() {
    awk -v fence='^[`]+' '$0 ~ fence { if (inside) exit; inside = /c$/; next } inside' "$1"
}

check "there are links to look at" "$([ "$(links | wc -l)" -gt 10 ] || echo none)"
check "every link leads somewhere" "$(broken_links)"
check "there are names of files to look at" "$([ "$(named_files | wc -l)" -gt 50 ] || echo none)"
check "every file that a document names is there" "$(missing_files)"
check "every header that a document names is there" "$(missing_headers)"
check "every exported function has a comment" "$(undocumented)"
check "the program in README.md is examples/first_daemon.c" "$(program README.md | diff - examples/first_daemon.c)"

[ "$failures" -eq 0 ]
