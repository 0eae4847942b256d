#!/usr/bin/env bash
# The packages as a user has them: installed, built against in both ways, used, and removed without a trace. To be run on a copy of
# the machine's files (in-overlay).    packages.sh FOLDER-OF-PACKAGES
set -u
folder=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
[ -n "${LEFT-}" ] || { echo "this machine's own files are not to be changed: run it with in-overlay" >&2; exit 2; }
failures=0
fail() { echo "FAILED: $*" | head -n 20; failures=$((failures + 1)); }
work=$(mktemp -d)
ours='^/(usr|opt|etc)/.*(logicalcontrols|consolectl|LogicalControls|orvik)'
written() { (cd "$LEFT" && find . ! -type d ! -type c | sed 's/^\.//' | grep -Ev '^/(var|tmp|root|mnt|proc|sys|dev|etc/ld.so.cache)' | sort); }

log=$(lintian --fail-on error,warning "$folder"/*.deb 2>&1) || fail "lintian: $log"
written >"$work/before"
log=$(dpkg -i "$folder"/*.deb 2>&1) || fail "dpkg -i: $log"
[ "$(written | grep -cE "$ours")" -gt 50 ] || fail "not installed: $(written)"

# Each example, found by CMake and by pkg-config, outside of any tree.
cp -r /usr/share/doc/logicalcontrols-doc/examples "$work"
mkdir "$work/cmake"
{
    echo 'cmake_minimum_required(VERSION 3.25)'
    echo 'project(Examples CXX)'
    echo 'find_package(LogicalControls REQUIRED)'
    echo 'set(CMAKE_ENABLE_EXPORTS ON)' # for the stack that failure_policy prints
    for file in "$work"/examples/*.cpp; do
        name=$(basename "$file" .cpp)
        echo "add_executable($name $file)"
        echo "target_link_libraries($name PRIVATE LogicalControls::logicalcontrols)"
    done
} >"$work/cmake/CMakeLists.txt"
log=$(cmake -G Ninja -S "$work/cmake" -B "$work/cmake/build" 2>&1 && cmake --build "$work/cmake/build" 2>&1) || fail "find_package: $log"
mkdir "$work/pkg-config"
for file in "$work"/examples/*.cpp; do
    name=$(basename "$file" .cpp)
    # shellcheck disable=SC2046
    log=$(g++ "$file" -o "$work/pkg-config/$name" $(pkg-config --cflags --libs logicalcontrols) 2>&1) || fail "pkg-config: $name: $log"
    for built in cmake/build pkg-config; do
        ldd "$work/$built/$name" | grep -q 'liblogicalcontrols\.so\.1 => /\(usr/\)\?lib/' || fail "$built/$name isn't linked with what is installed"
    done
done
for built in cmake/build pkg-config; do
    [ "$("$work/$built/router_names")" = "2 NT_SURFACE SURFACE, 250(PORT_LOCAL_ROUTER), 2(SPLITTER_PORT_A_AND_B)" ] || fail "$built/router_names"
done

# The Guide as it is installed: each role's program is taken from the page, built as it says there, and run beside consolectl mc.
guide=/usr/share/doc/logicalcontrols-doc/Documentation/Guide.md
log=$(PATH=$work/cmake/build:$PATH "$here/../System/run_documents.sh" $guide 2>&1) || fail "the Guide: $log"

for page in /usr/share/doc/logicalcontrols-doc/{,Documentation/}*.md; do
    for link in $(awk '/^```/ { fence = !fence } !fence' "$page" | grep -o '](\([^)#]*\)' | sed 's/](//' | grep -v '^http'); do
        [ -e "$(dirname "$page")/$link" ] || fail "$page leads to no $link"
    done
done

# The tool, its pages and its completion.
[ "$("$here/../../Tools/in-namespace" consolectl params --format csv | wc -l)" = 241340 ] || fail "consolectl params"
man -w consolectl-watch >/dev/null 2>&1 || [ -e /usr/share/man/man1/consolectl-watch.1.gz ] || fail "no page of consolectl watch"
bash -c '. /usr/share/bash-completion/completions/consolectl && complete -p consolectl' >/dev/null || fail "completion"
[ "$(zsh -fc 'autoload -Uz compinit; compinit -D -u; echo "${_comps[consolectl]}"')" = _consolectl ] || fail "completion in zsh"
consolectl diagnostics send --print >"$work/report.xml"
consolectl diagnostics validate "$work/report.xml" >/dev/null || fail "the schema isn't where the reader looks"
[ -e /usr/share/doc/logicalcontrols-doc/reference/classCBMAContainer.html ] || fail "no reference of the headers"

# The module, as this machine's Python finds it, and its examples.
python() { (cd "$work" && env -u PYTHONPATH PYTHONDONTWRITEBYTECODE=1 "$here/../../Tools/in-namespace" /usr/bin/python3 "$@"); }
python -c 'import logicalcontrols; print(logicalcontrols.__file__)' | grep -q '^/usr/lib/python3/dist-packages/' || fail "import"
for example in /usr/share/doc/python3-logicalcontrols/examples/*.py; do
    log=$(python "$example" 2>&1) || fail "$example: $log"
done

# Nothing stays.
log=$(dpkg -P python3-logicalcontrols logicalcontrols-tools liblogicalcontrols-dev logicalcontrols-doc liblogicalcontrols1 2>&1) || fail "dpkg -P: $log"
written >"$work/after"
left=$(comm -13 "$work/before" "$work/after")
[ -z "$left" ] || fail "left behind: $left"
[ -d /opt ] || fail "the folder /opt is gone, which was there before"
[ ! -e /opt/orvik ] && [ ! -e /usr/include/logicalcontrols ] || fail "folders left behind"
[ $failures = 0 ] && echo "passed"
[ $failures = 0 ]
