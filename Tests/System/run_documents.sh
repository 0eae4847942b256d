#!/usr/bin/env bash
# The commands of a document, run as they stand there, in one shell in an empty folder, and what they answer.
#   run_documents.sh DOCUMENT [SOURCE_DIR BUILD_DIR]
# With a build, its programs are at hand, what it installs is found as if it were installed, and the folder has the sources as
# logicalcontrols, with the build as logicalcontrols/build/dev. Without one, what this machine has is taken.
#
# In a block of ```console, a line that begins with "$ " is a command, continued in the next after a \, and the lines behind it are
# all that it prints: "..." is anything within a line, a line "..." any lines, and none. A command has to end with 0 unless the next
# is "echo $?". One that ends with & has to begin with its lines, and is ended in the end; a comment may follow. A block of
# ```console not-run: REASON is left out. A block with a file's name, as ```cpp gui.cpp, is written to that file.
# LIMIT is how many seconds a command may take.
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
document=$(realpath -e "$1") || exit 1
limit=${LIMIT-60}
work=$(mktemp -d) || exit 1
mkdir "$work/answers" "$work/scratch"
newline=$'\n'
number=0 line=0 begun=0 status=0 failing='' commands=0 left_out=0

at() { fail "$(basename "$document"):$line: $*"; }

installed()
{
    local source build=$2 stage=$work/stage library
    source=$(realpath "$1")
    build=$(realpath "$2")
    DESTDIR=$stage cmake --install "$build" >/dev/null || { at "the build can't be installed"; finish; }
    library=$(dirname "$(find "$stage" -name 'liblogicalcontrols.so')")
    export PATH=$build/bin:$PATH CMAKE_PREFIX_PATH=${library%/lib*} LD_LIBRARY_PATH=$library
    export PKG_CONFIG_PATH=$library/pkgconfig PKG_CONFIG_SYSROOT_DIR=$stage
    mkdir -p "$work/scratch/logicalcontrols/build"
    ln -s "$source"/* "$work/scratch/logicalcontrols" 2>/dev/null # but for build, which is there
    ln -s "$build" "$work/scratch/logicalcontrols/build/dev"
}

# Reads commands that end with a zero byte, and says how each ended.
# shellcheck disable=SC2016
shell='
    exec 8>&1 9<&0
    cd "$1/scratch" || exit 1
    number=0 status=0
    while IFS= read -r -d "" -u 9 command; do
        number=$((number + 1))
        (exit $status)
        eval "$command" >"$1/answers/$number" 2>&1 </dev/null 8>&- 9<&-
        status=$?
        echo $status >&8
    done'

# What a command printed, without blanks at the end of lines.
answer() { sed 's/[[:blank:]]*$//' "$work/answers/$number" | awk 1; }

# matches EXPECTED END: the answer is what is expected, up to its END, $ or nothing.
matches()
{
    local pattern='' part got
    while IFS= read -r part; do
        case $part in
            '\.\.\.') pattern="$pattern([^$newline]*$newline)*" ;;
            *) pattern=$pattern${part//'\.\.\.'/[^$newline]*}$newline ;;
        esac
    done < <(printf %s "$1" | sed 's/[[:blank:]]*$//; s/[][\.*^$+?(){}|]/\\&/g')
    got=$(answer && echo .)
    pattern=^$pattern$2
    [[ ${got%.} =~ $pattern ]]
}

compare()
{
    case $command in
        *[!\&]\& | *[!\&]'& '*'# '*)
            for _ in $(seq $((limit < 10 ? limit * 20 : 200))); do matches "$expected" '' && return; sleep 0.05; done
            ;;
        *) matches "$expected" '$' && return ;;
    esac
    at "$command: not as the document says (<: the document, >: printed)$newline$(diff <(printf %s "$expected") <(answer))"
}

run()
{
    [ -n "${command-}" ] || return
    local line=$begun
    [ -z "$failing" ] || [ "$command" = 'echo $?' ] || at "$failing: status $status"
    number=$((number + 1)) commands=$((commands + 1))
    printf '%s\0' "$command" >&"$to"
    if ! read -r -t "$limit" -u "$from" status; then
        at "$command: not done within $limit seconds"
        end
    fi
    failing=
    [ "$status" = 0 ] || failing=$command
    compare
    command=
}

end()
{
    [ -z "$failing" ] || at "$failing: status $status"
    kill -- -"$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
    [ $left_out = 0 ] || echo "$left_out commands left out"
    [ "$failures" != 0 ] || echo "$commands commands"
    finish
}

# One line within a block.
in_console()
{
    case $1 in
        '$ '*) run; command=${1#'$ '} expected='' begun=$line ;;
        *) if [ -z "$command" ]; then at "what is this the output of? $1"
           elif [[ $command == *\\ && -z $expected ]]; then command=$command$newline$1
           else expected=$expected$1$newline; fi ;;
    esac
}
in_not_run() { case $1 in '$ '*) left_out=$((left_out + 1)); echo "left out: ${1#'$ '} (${info#*: })" ;; esac; }
in_file() { printf '%s\n' "$1" >>"$work/scratch/$file"; }

begin()
{
    info=$1 command='' file=''
    case $info in
        console) inside=in_console ;;
        'console not-run: '?*) inside=in_not_run ;;
        console*) inside=:; at "\"$info\" has no reason" ;;
        *' '*) inside=in_file file=${info##* }; : >"$work/scratch/$file" ;;
        *) inside=: ;;
    esac
}

trap 'rm -rf "$work"' EXIT
[ $# = 1 ] || installed "$2" "$3"
set -m
coproc bash -c "$shell" shell "$work"
set +m
# shellcheck disable=SC2153
pid=$COPROC_PID
exec {from}<&"${COPROC[0]}" {to}>&"${COPROC[1]}"
inside=
while IFS= read -r text || [ -n "$text" ]; do
    line=$((line + 1))
    if [ -z "$inside" ]; then
        case $text in '```'*) begin "${text#'```'}" ;; esac
    elif [ "$text" = '```' ]; then
        [ $inside != in_console ] || run
        inside=
    else
        $inside "$text"
    fi
done <"$document"
[ -z "$inside" ] || at "a block never ends"
end
