#!/usr/bin/env bash
# Every C++ block of the documents stands, line by line and but for its indent, in a program of Examples, and is all of it when it has
# the program's name; every Python block stands as it is in one of Python/Examples; the README has the first client whole; every
# program is in the Guide, or on Python's page; the four of the roles are under 60 lines; commands and CMake stand in blocks that are
# run (run_documents.sh); every local link leads somewhere; each row of the table of calls by thread has its test, and each such test
# its row.
#   check_documents.sh SOURCE_DIR
set -u
cd "$1" || exit 1
bad=0
fail() { echo "FAILED: $*"; bad=1; }

# Without indent, and without what continues a macro's line.
flat_cpp() { sed 's/^[[:space:]]*//; s/[[:space:]]*\\*$//'; }
flat_python() { cat; }
for document in *.md Documentation/*.md; do
    block=
    inside=
    while IFS= read -r line || [ -n "$line" ]; do
        case $inside$line in
            '```cpp'*) inside=x block='' language=cpp programs=(Examples/*.cpp) whole=${line#'```cpp'} ;;
            '```python') inside=x block='' language=python programs=(Python/Examples/*.py) whole='' ;;
            '```cmake') fail "$document: a block of CMake without a file's name is not built" ;;
            '```sh'* | '```bash'*) fail "$document: $line is not run" ;;
            'x```')
                inside=
                [ -z "$whole" ] || [ "$block" = "$(cat Examples/"${whole# }")" ] || fail "$document:$whole is not Examples/${whole# }"
                found=
                for program in "${programs[@]}"; do
                    [[ $'\n'$(flat_$language <"$program")$'\n' == *$'\n'"$(printf '%s' "$block" | flat_$language)"$'\n'* ]] && found=$program
                done
                [ -n "$found" ] || fail "$document: no program has$block"
                ;;
            x*) block=$block$'\n'$line; [ "$block" != $'\n'"$line" ] || block=$line ;;
        esac
    done <"$document"
    # A block by its indent may be data or a picture.
    commands=$(awk '/^```/ { fence = !fence } !fence && blank && /^    (\$ |\.\/|[a-z]+\/|cmake |consolectl |tshark )/; { blank = /^$/ }' "$document")
    [ -z "$commands" ] || fail "$document: commands that are not run: $commands"
    for link in $(awk '/^```/ { fence = !fence } !fence' "$document" | grep -o '](\([^)#]*\)' | sed 's/](//' | grep -v '^http'); do
        [ -e "$(dirname "$document")/$link" ] || fail "$document: no $link"
    done
done
for program in Examples/*.cpp; do
    grep -qF "$(basename "$program")" Documentation/Guide.md || fail "the Guide does not name $program"
done
for program in Python/Examples/*.py; do
    grep -qF "$(basename "$program")" Documentation/Python.md || fail "the page of Python does not name $program"
done
for program in control_surface gui io_device test_rig; do
    [ "$(wc -l <Examples/$program.cpp)" -lt 60 ] || fail "$program is too long"
    grep -qx "\`\`\`cpp $program.cpp" Documentation/Guide.md || fail "the Guide does not have $program"
done
if [ "$(awk '/^```cpp$/ { on = 1; next } /^```$/ { on = 0 } on' README.md)" != "$(grep -v '^// The smallest client' Examples/first_client.cpp)" ]; then
    fail "the program in README.md is not Examples/first_client.cpp"
fi
rows=$(sed -n '/^<!-- threads -->$/,/^<!-- end -->$/p' Documentation/Architecture.md | grep '^| [^*-]' | tail -n +2)
grep '| *|' <<<"$rows" && fail "the calls by thread: an empty cell"
differs=$(diff <(sed 's/.*| `\(.*\)` |$/\1/' <<<"$rows" | sort) \
    <(sed -n 's/^TEST(ThreadTable, \(.*\))$/\1/p' Tests/Runtime/ThreadTableTest.cpp | sort)) ||
    fail "the calls by thread (<) and their tests (>): $differs"
[ $bad = 0 ] && echo passed
exit $bad
