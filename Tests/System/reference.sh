#!/usr/bin/env bash
# The reference is built without a warning, from any folder the same; every public header has its page, and what it says of a type
# or a function stands beside the name there; and what would be wrong is noticed.
#   reference.sh SOURCE_DIR BUILD_DIR HEADER...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
command -v doxygen >/dev/null || { echo "skipped: there is no doxygen here"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source=$1 build=$2
shift 2

# copy FOLDER, which is to be spoiled; reference FOLDER [SETTING...], of a copy.
copy()
{
    mkdir -p "$1/build"
    cp -r "$source"/*.md "$source"/{Documentation,Examples,Python,Source} "$1"
    sed "s|$build|$1/build|g; s|$source|$1|g" "$build/Doxyfile" >"$1/Doxyfile"
}
reference() { (cd "$1" && cat Doxyfile - <<<"${2-}" | doxygen -); }

copy "$work/first"
expect 0 "the reference" reference "$work/first"
[ -z "$output" ] || fail "doxygen: $output"
html=$work/first/build/reference
copy "$work/further/on"
expect 0 "the reference in another folder" reference "$work/further/on"
expect 0 "another folder" diff -rq "$html" "$work/further/on/build/reference"
expect 1 "the folder's name" grep -rF "$work" "$html"
expect 1 "the source's" grep -rF "$source/" "$html"
expect 0 "the README" grep -q 'The first five minutes' "$html/index.html"

# Links between pages.
for link in $(cat "$html"/*.html | grep -oE '(href|src)="[^"#:]+["#]' | sed 's/.*="//; s/["#]$//' | sort -u); do
    [ -e "$html/$link" ] || fail "there is no $link"
done

# What headers say, a row each: "enum tagenPPCMessageType<tab>First coordinate: ...", "IsParameterAddress (<tab>True when ...".
said()
{
    awk '
        /^\/\/ / { if (!ended) text = text substr($0, 3) }
        /^\/\/$/ { ended = 1 }
        /^$/ { text = ""; ended = 0 }
        /^(class|struct|union|enum) .*[^;>]$/ { row($0); text = "" }
        /^[A-Za-z].*\(/ && !/^(class|struct|union|enum|template|extern|static_assert|constexpr|typedef|using)[ (]/ { row($0) }
        function row(name)
        {
            gsub(/__attribute__\(\(.*"\)\)\) |LOGICALCONTROLS_[A-Z_]+ /, "", name)
            if (name !~ /^(class|struct|union|enum) /)
            {
                match(name, /(operator<<|[A-Za-z0-9_]+)\(/)
                name = substr(name, RSTART, RLENGTH - 1) " ("
            }
            sub(/ :.*/, "", name)
            sub(/\. .*/, ".", text)
            gsub(/^ |`/, "", text)
            print name "\t" text
        }' "$@"
}

# The rows of the reference, as they are read: "int CountFragments (long lLength)<tab>How many fragments ...".
listed()
{
    awk '
        /class="memitem:/ { item = ""; on = 1 }
        /class="memdesc:/ { print item "\t" $0; on = 0 }
        on { item = item " " $0 }' "$html"/*.html |
        sed 's/<[^>]*>//g; s/&#160;/ /g; s/&lt;/</g; s/&gt;/>/g; s/&quot;/"/g; s/&amp;/\&/g' | tr -s ' '
}

# is_listed NAME TEXT: in a row the name is a whole one, and the text stands at the beginning.
is_listed()
{
    name=$1 text=$2 awk -F '\t' '
        { at = index(" " $1 " ", " " ENVIRON["name"]) }
        at && ENVIRON["text"] != "" && index($2, " " ENVIRON["text"]) == 1 { found = 1 }
        END { exit !found }' "$work/listed"
}

listed >"$work/listed"
for header in "$@"; do
    page=$(basename "$header" .h)_8h.html
    grep -qs "<title>.*$(basename "$header") File Reference" "$html/$page" || fail "there is no page of $header"
    while IFS=$'\t' read -r name text; do
        is_listed "$name" "$text" || fail "$header: $name isn't listed as \"$text\""
    done < <(said "$header")
done
[ "$(said "$@" | wc -l)" -gt 80 ] || fail "the headers say too little: $(said "$@")"

is_listed "class CMutex" "A counting semaphore" && fail "a comment at another class is not noticed"

# What is indented stays in lines, also where one comment goes for several functions.
[ "$(grep -c '^.*ExportGlobalParameters    to destination' "$html/classCBMAContainer.html")" = 4 ] || fail "no table of imports and exports"

# What is wrong is an error, and it says where: spoil WHAT FILE:LINE SED-SCRIPT MESSAGE.
spoil()
{
    file=$work/first/${2%:*}
    cp "$file" "$work/whole"
    sed -i "$3" "$file"
    expect 1 "$1" reference "$work/first" "INPUT = \"$file\""
    contains "$2: error: $4"
    cp "$work/whole" "$file"
}
clock=Source/Common/Runtime/Clock.h
spoil "a class of which nothing is said" $clock:8 8,9d "Found unknown command '@uncommented'"
spoil "another class between it and its comment" $clock:13 '9a class COther\n{\n};' "Found unknown command '@uncommented'"
spoil "a comment apart from its class" $clock:11 9G "Found unknown command '@uncommented'"
spoil "a function of which nothing is said" $clock:25 '$a \\nvoid Unsaid(int nValue);' "Found unknown command '@uncommented'"
spoil "a header that does not say what it is" $clock:1 1d "Found unknown command '@uncommented'"
spoil "a reference to nothing" $clock:9 '9s/$/ See @ref CNowhere./' "unable to resolve reference to 'CNowhere'"
spoil "a page that leads nowhere" Documentation/Scaling.md:2 '1a [Nowhere](Nowhere.md)' "unable to resolve reference to"
finish
