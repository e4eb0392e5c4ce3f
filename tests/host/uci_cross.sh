#!/bin/sh
# Crosses two `uci` commands over the corpus: what one writes the other must read the same way, and
# both must say the same, on both outputs and with their exit code.
#
#   uci_cross.sh UCI_A UCI_B [CORPUS]
#
# Useful where the firmware's own command is installed: the workstation's must agree with it.
set -u

[ $# -ge 2 ] || { echo "usage: $0 UCI_A UCI_B [CORPUS]" >&2; exit 2; }

# The commands run in directories of their own.
absolute() {
    echo "$(cd "$(dirname "$1")" && pwd)/$(basename "$1")"
}
uci_a=$(absolute "$1")
uci_b=$(absolute "$2")
corpus=$(absolute "${3:-$(dirname "$0")/../data/uci}")
work=$(mktemp -d) || exit 2
trap 'rm -rf "$work"' EXIT
checks=0
differences=0

# What one command says and leaves behind, in the directory $work/$1: its outputs, its exit code, the
# configuration files and the staged changes.
run() {
    side=$1
    shift
    case $side in a) uci=$uci_a ;; *) uci=$uci_b ;; esac
    mkdir -p "$work/$side/config" "$work/$side/staged"
    (cd "$work/$side" && "$uci" -c config -C none -t staged "$@" >stdout 2>stderr </dev/null
        echo $? >code)
    # Errors begin with the command's own path, and its usage names it.
    sed -i -e "s|^$uci: |uci: |" -e "s|^Usage: $uci |Usage: uci |" "$work/$side/stderr"
}

fresh() {
    rm -rf "$work/a" "$work/b"
    for side in a b; do
        mkdir -p "$work/$side/config" "$work/$side/staged"
        [ $# -eq 0 ] || cp "$1" "$work/$side/config/corpus"
    done
}

check() {
    checks=$((checks + 1))
    if ! diff -r "$work/a" "$work/b" >"$work/diff" 2>&1; then
        differences=$((differences + 1))
        echo "DIFFERENT: $*"
        sed 's/^/    /' "$work/diff" | head -n 20
    fi
}

both() {
    run a "$@"
    run b "$@"
    check "$file: uci $*"
}

reads_alike() {
    for file in "$corpus"/*.conf "$corpus"/bad/*.conf; do
        fresh "$file"
        both export corpus
        both -n export corpus
        both -N export
        both -S export corpus
        both -q export corpus
        both show corpus
        both -X show
        both -d , show corpus
        both commit corpus
        both import -f "$file"
        both import -f "$file" new
        both -m -f "$file" import corpus
        both changes
        both commit
    done
}

# The staged changes change hands between the edits and their commit.
swap_staged() {
    mv "$work/a/staged" "$work/swap"
    mv "$work/b/staged" "$work/a/staged"
    mv "$work/swap" "$work/b/staged"
}

# The configuration files change hands.
swap_config() {
    mv "$work/a/config" "$work/swap"
    mv "$work/b/config" "$work/a/config"
    mv "$work/swap" "$work/b/config"
}

edits_cross() {
    for file in "$corpus"/*.conf; do
        fresh "$file"
        both add corpus fresh
        both set corpus.@fresh[-1].o="it's a
value"
        both add_list corpus.@fresh[-1].l=1
        both add_list corpus.@fresh[-1].l='two words'
        both set corpus.b.o=changed
        both add_list corpus.b.l=more
        both del_list corpus.b.l=x
        both delete corpus.b.p
        both rename corpus.b=renamed
        both reorder corpus.@[0]=1
        swap_staged
        both changes
        both show
        both commit corpus
        swap_config
        both export corpus
        both delete corpus.@[0]
        both revert corpus
        both commit
    done
}

commands_alike() {
    while IFS= read -r line; do
        file=commands
        fresh
        printf '%s\n' 'config a' ' option o 1' ' option p "a b"' 'config t b' ' option o val' \
            ' list l 1' ' list l "2 3"' " list l \"x'y\"" ' list l 4' 'config a q' \
            ' option o last' | tee "$work/a/config/corpus" >"$work/b/config/corpus"
        eval "both $line"
        both changes
        both commit
    done <<'COMMANDS'
show
show corpus
show corpus.b
show corpus.b.l
show corpus.b.nope
show corpus.nope
show nope
show corpus.@a[0]
show corpus.@a[-1]
show corpus.@a
show corpus.@[1].o
show corpus.b=x
show ''
get corpus
get corpus.b
get corpus.b.o
get corpus.b.l
get corpus.b.nope
get corpus.b.o=1
get corpus.b.o.x
get corpus..o
get corpus.@a[9].o
get corpus.@a[x].o
get corpus.@a[0
get corpus.@a[0]z
get corpus.@a[].o
get corpus.@a[01].o
get corpus.@a[0x1].o
get corpus.@a[+1].o
get corpus.@zz[0]
get nope.b.o
get
get corpus.b corpus.b
set corpus.b.o=val
set corpus.b.o=1=2
set corpus.b.o=
set corpus.b.new=
set corpus.b.o
set corpus.b.l=5
set corpus.b=t
set corpus.b=u
set corpus.b=longer
set corpus.b=
set corpus.@a[0]=z
set corpus.@a[0]=longer
set corpus.@a[7]=5
set corpus.@a[7].o=5
set corpus.n=t
set corpus.n.o=1
set corpus.b-c=t
set corpus.b.o-p=1
set corpus=x
set nope.b=t
set corpus.b='two words'
set "corpus.b.o=$(printf 'tab\there')"
set "corpus.b.o=$(printf 'control\001')"
set "corpus.b.o=it's"
set corpus.b.o=@#%
add corpus t
add corpus b-c
add corpus
add nope t
add corpus.b t
add_list corpus.b.o=z
add_list corpus.b.l=
add_list corpus.b.new=5
add_list corpus.n.new=5
add_list corpus.b.l
del_list corpus.b.l=1
del_list corpus.b.l=9
del_list corpus.b.o=val
del_list corpus.b.nope=1
del_list corpus.n.l=1
del_list corpus.b.l
delete corpus.b
delete corpus.b.o
delete corpus.b.l
delete corpus.b.l=0
delete corpus.b.l=3
delete corpus.b.l=4
delete corpus.b.l=-1
delete corpus.b.l=1x
delete corpus.b.l=x
delete corpus.b.o=0
delete corpus.b=0
delete corpus.nope
delete corpus.b.nope
delete corpus
delete corpus.@a[0]
delete corpus.@a[1].o
rename corpus.b=c
rename corpus.b=q
rename corpus.b.o=p
rename corpus.b.o=x-y
rename corpus.@a[0]=named
rename corpus.b
rename corpus=x
rename corpus.nope=x
reorder corpus.b=0
reorder corpus.b=1
reorder corpus.b=2
reorder corpus.b=99
reorder corpus.b=-1
reorder corpus.b=x
reorder corpus.b
reorder corpus.b.o=1
reorder corpus.nope=1
reorder corpus=1
revert corpus
revert corpus.b
revert corpus.b=1
revert nope
revert
commit nope
commit corpus.b
commit corpus=1
changes nope
changes corpus.b.o=1
export nope
export corpus.b
import corpus
import a/b
-m import corpus
-m import new
-m import
-P other set corpus.b.o=staged
-p other set corpus.b.o=staged
-P staged commit
-d '' get corpus.b.l
-d , get corpus.b.l
-d ', ' show corpus.b.l
-q get nope
-q delete corpus.nope
-q frob
-v
-c
frob
help
exit
''
batch
COMMANDS
}

batches_alike() {
    while IFS= read -r line; do
        file='batch'
        fresh
        printf '%s\n' 'config a' 'config t b' ' option o val' |
            tee "$work/a/config/corpus" >"$work/b/config/corpus"
        printf '%b' "$line" | tee "$work/a/batch" >"$work/b/batch"
        both -f batch batch
        both changes
    done <<'BATCHES'
get corpus.b.o\nget corpus.b\n
frob\nget corpus.b\n
get corpus.nope\nget corpus.b\n
set corpus.b.o=1 2\nget corpus.b.o\n
set corpus.b.o="1 2"\nget corpus.b.o\n
set corpus.b.o='1\n2'\nget corpus.b.o\n
get a b c d\nget corpus.b\n
exit\nget corpus.b\n
help\n
# comment\n\n  get corpus.b # comment\n
get corpus.b ; get corpus.b\n
add corpus x\nset corpus.@x[-1].o=1\nshow\nchanges\n
set corpus.b.o=5\nchanges\nrevert corpus\nchanges\nshow\n
set corpus.b.o=5\ncommit\nexport\n
delete corpus.b\ndelete corpus.b\nshow\n
batch\n
"unterminated\n
get corpus.b
BATCHES
}

reads_alike
edits_cross
commands_alike
batches_alike
echo "$checks checks, $differences differences"
[ "$differences" -eq 0 ]
