#!/usr/bin/env bash
# The console's groups, types, addresses and totals come from one table. The public header's enumerators, the defaults in the library,
# the dissector's tables, `consolectl params` and the generated tables of the documents all say the same.
#   one_source.sh [--update] SOURCE_DIR LIBRARY TABLES.LUA COMPILER CONSOLECTL...      with --update it writes the documents' tables
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
export LC_ALL=C
update=
[ "$1" != --update ] || { update=yes && shift; }
source=$1 library=$2 tables=$3 compiler=$4
shift 4

# Each source is put into lines such as these, of which it has some kinds:
#   constant NAME VALUE             type NUMBER NAME                group NUMBER NAME           paths GROUP COUNT
#   parameters GROUP TYPE COUNT     addresses GROUP TYPE COUNT      total TYPE COUNT            role NAME TYPE GROUP PARAMETER

# What there is, by the addresses that are listed: message type by message type, in each group by group.
of_params()
{
    awk -F, '
        NR == 1 { next }
        {
            split($1, part, "/")
            if (!(part[3] in types)) { types[part[3]] = ntypes++; print "type", types[part[3]], part[3] }
            if (!(part[1] in groups)) { groups[part[1]] = ngroups++; print "group", groups[part[1]], part[1] }
            type = types[part[3]]
            group = groups[part[1]]
            if (part[2] + 1 > paths[group]) paths[group] = part[2] + 1
            if (part[4] + 1 > params[group, type]) params[group, type] = part[4] + 1
            addresses[group, type] += !($1 in seen)
            seen[$1]
            ++total[type]
            if (NF < 5 || (part[3] != "String" && $NF == "")) print "no default", $1
            if ($2 != "" && part[2] == 0) { print "role", $2, type, group, part[4]; nroles += !($2 in roles); roles[$2] }
        }
        END {
            for (group = 0; group < ngroups; ++group) {
                print "paths", group, paths[group]
                for (type = 0; type < ntypes; ++type) {
                    print "parameters", group, type, params[group, type]
                    print "addresses", group, type, addresses[group, type] + 0
                }
            }
            for (type = 0; type < ntypes; ++type) print "total", type, total[type]
            print "constant c_nMessageTypes", ntypes
            print "constant c_nPathTypes", ngroups
            print "constant c_nParameters", NR - 1
            print "constant c_nCommonParamTypes", nroles
        }'
}

# Of the dissector's tables; and what only they have: the bytes of arrays and changes, the types of updates, and limits.
of_dissector()
{
    awk '
        function after(text, what) { return substr(text, index(text, what) + length(what)) }
        function digits(text) { gsub(/[^0-9]/, "", text); return text + 0 }
        function text(line,    part) { split(line, part, "\""); return part[2] }
        /^    [a-z_]+ = [{]$/ { section = $1 }
        /^    },$/ { section = "" }
        !section { for (i = 1; i < NF; ++i) if ($(i + 1) == "=" && $(i + 2) ~ /^[0-9]+,$/) print "limit", $i, $(i + 2) + 0 }
        !/name = / { next }
        section == "types" {
            print "type", digits($1), text($0)
            print "total", digits($1), after($0, "count = ") + 0
            print "bytes", digits($1), after($0, "bytes = ") + 0
            split(after($0, "kind = "), kind, "\"")
            print "kind", digits($1), kind[2], after($0, "in_array = ") + 0, after($0, "in_change = ") + 0
        }
        section == "update_types" { print "update", digits($1), after($0, "first = ") + 0, after($0, "last = ") + 0, text($0) }
        section == "groups" {
            group = digits($1)
            paths = after($0, "paths = ") + 0
            print "group", group, text($0)
            print "paths", group, paths
            count = split(after($0, "params = {"), param, "[][]")
            for (i = 2; i < count && param[i + 1] ~ /^ = [0-9]/; i += 2) {
                print "parameters", group, param[i], after(param[i + 1], "= ") + 0
                print "addresses", group, param[i], paths * (after(param[i + 1], "= ") + 0)
            }
            count = split(after($0, "roles = {"), role, "[][]")
            for (i = 2; i < count; i += 2)
                if (role[i + 1] ~ /[{]$/) type = role[i]
                else print "role", text(role[i + 1]), type, group, role[i]
        }' "$1"
}

# The enumerators and constants of the public header, as the compiler sees them.
of_header()
{
    echo '#include "LogicalControls/ParameterModel.h"' |
        "$compiler" -E -P -I "$source/Source/Common" -I "$source/Source/InHouse" -x c++ - | tr '\n' ' ' | sed 's/[;}]/&\n/g' |
        awk '
            function print_all(kind,    part, count, i)
            {
                count = split(after_brace($0), part, /[, ]+en/)
                for (i = 2; i <= count; ++i) {
                    gsub(/[ ,}]/, "", part[i])
                    if (split(part[i], pair, "=") == 2) number = pair[2]
                    sub(/^Common/, "", pair[1])
                    print kind, number++, pair[1]
                }
            }
            function after_brace(text) { number = 0; sub(/^[^{]*[{]/, " ", text); return text }
            /enum .*tagenPPCMessageType/ { print_all("type") }
            /enum .*tagenVirtualPathType/ { print_all("group") }
            /enum .*enCommonParamTypes/ { print_all("named role") }
            /constexpr int c_n[A-Za-z]* = [0-9]+/ { sub(/.*constexpr int /, ""); print "constant", $1, $3 + 0 }'
}

# How many defaults of each group and type the library has, by the sizes of its arrays. That of strings is known by the group's name.
of_defaults()
{
    readelf -sW "$library" | awk -v pointer="$(readelf -h "$library" | awk '/Class:/ { print $2 == "ELF64" ? 8 : 4 }')" '
        FILENAME == "-" && /10stDefaultsI.*6values/ {
            name = $NF
            sub(/.*10stDefaultsILi/, "", name)
            group = name + 0
            sub(/.*tagenPPCMessageType/, "", name)
            print "parameters", group, name + 0, ($3 ~ /^0x/ ? 0 : $3) / (name + 0 == 2 || name + 0 == 6 ? 1 : 4)
        }
        FILENAME == "-" && /Parameters18enPPCStringMessage10caDefaultsE/ {
            name = $NF
            sub(/Parameters18enPPC.*/, "", name)
            sub(/^_ZN[0-9]*/, "", name)
            if (name in number) print "parameters", number[name], 0, $3 / pointer
            else print "defaults of no group:", name
        }
        $1 == "group" && FILENAME != "-" { number[$3] = $2 }' "$work/params" - | sort -u
}

# agree SOURCE KIND...: its lines of these kinds are those of what is listed.
agree()
{
    local name=$1 kinds
    kinds="^($(IFS='|' && shift && echo "$*")) "
    diff <(grep -E "$kinds" "$work/params" | sort) <(grep -E "$kinds" "$work/$name" | sort) >"$work/diff" ||
        fail "consolectl params (<) and the $name (>): $(cat "$work/diff")"
}

expect 0 "params" "$@" params --format csv
of_params <<<"$output" >"$work/params"
of_dissector "$tables" >"$work/dissector"
of_header >"$work/header"
of_defaults >"$work/defaults"
grep 'no default' "$work/params" && fail "parameters without a default"
agree header type group constant
agree dissector type group paths parameters addresses total role
agree defaults parameters "defaults of no group:"
[ "$(grep -c ^role "$work/dissector")" -gt 100 ] || fail "roles: $(grep -c ^role "$work/dissector")"
while read -r _ _ _ name; do
    grep -q "^role $name " "$work/params" || fail "no parameter has the role $name"
done < <(grep '^named role' "$work/header")

# ---- The documents ------------------------------------------------------------------------------------------------------------

cat "$work/params" <(grep -E '^(bytes|kind|update|limit)' "$work/dissector") <(grep '^named' "$work/header") >"$work/model"

# The generated table of that name, in Markdown.
generate()
{
    awk -v table="$1" '
        function thousands(n,    text)
        {
            for (text = ""; n >= 1000; n = int(n / 1000)) text = sprintf(",%03d", n % 1000) text
            return n text
        }
        function head(line,    rule) { rule = line; print line; gsub(/[^|]+/, " --- ", rule); print rule }
        function list(first, last,    text)
        {
            for (text = ""; first <= last; ++first) text = text (text == "" ? "" : ", ") first " " tolower(types[first])
            return text
        }
        function whole(first, last,    size)
        {
            for (size = limit["update_header"]; first <= last; ++first) size += 4 + bytes[first]
            return size
        }
        function fragments(size) { return int((size + payload - 1) / payload) }
        function to_change(t)
        {
            if (kind[t] == "string") return in_change[t] " bytes, as stored"
            return kind[t] == "float" ? "IEEE-754 single" : kind[t] == "switch" ? "int32, 0 or not" : "int32"
        }
        function in_code(t)
        {
            if (kind[t] == "string") return "`RyGConsoleString`, up to " in_array[t] - 1 " characters"
            return kind[t] == "float" ? "`float`" : kind[t] == "switch" ? "`int`, 0 or 1" : in_array[t] == 1 ? "`unsigned char`" : "`int`"
        }
        # A row for each value, with all types that have it.
        function by_value(code,    t, u, value, done, names)
        {
            head("| message type | value |")
            for (t = 0; t < ntypes; ++t) {
                value[t] = code ? in_code(t) : to_change(t)
                if (value[t] in done) continue
                done[value[t]]
                names = ""
                for (u = t; u < ntypes; ++u)
                    if ((code ? in_code(u) : to_change(u)) == value[t])
                        names = names (names == "" ? "" : ", ") (code ? "`en" types[u] "`" : u " " tolower(types[u]))
                print "| " names " | " value[t] " |"
            }
        }
        $1 == "type" { types[$2] = $3; ++ntypes }
        $1 == "group" { groups[$2] = $3; ++ngroups }
        $1 == "paths" { paths[$2] = $3; npaths += $3 }
        $1 == "parameters" { params[$2, $3] = $4 }
        $1 == "addresses" { of_group[$2] += $4; all += $4 }
        $1 == "total" { total[$2] = $3 }
        $1 == "bytes" { bytes[$2] = $3 }
        $1 == "kind" { kind[$2] = $3; in_array[$2] = $4; in_change[$2] = $5 }
        $1 == "limit" { limit[$2] = $3 }
        $1 == "update" {
            first[$2] = $3
            last[$2] = $4
            for (i = 5; i <= NF; ++i) update[$2] = update[$2] (i > 5 ? " " : "") tolower($i)
        }
        $1 == "named" { named[$4] = $3 }
        $1 == "role" { role[$2]; role_type[$2] = $3; role_param[$2, $4] = $5; has_role[$4] }
        END {
            payload = limit["max_datagram"] - limit["datagram_header"]
            if (table == "groups") {
                line = "| path type | group | paths |"
                for (t = 0; t < ntypes; ++t) line = line " " types[t] " |"
                head(line " parameters |")
                for (g = 0; g < ngroups; ++g) {
                    line = "| " g " | " groups[g] " | " paths[g] " |"
                    for (t = 0; t < ntypes; ++t) line = line " " thousands(params[g, t]) " |"
                    print line " " thousands(of_group[g]) " |"
                }
                line = "| | in all | " npaths " |"
                for (t = 0; t < ntypes; ++t) line = line " " thousands(total[t]) " |"
                print line " " thousands(all) " |"
            } else if (table == "types") {
                head("| message type | enumerator | value | parameters |")
                for (t = 0; t < ntypes; ++t) print "| " t " | `en" types[t] "` | " in_code(t) " | " thousands(total[t]) " |"
                print "| | | | " thousands(all) " |"
            } else if (table == "common") {
                line = "| role | name | message type |"
                for (g = 0; g < ngroups; ++g) if (g in has_role) line = line " " groups[g] " |"
                head(line)
                for (r in role) { n = r ~ /^Common[0-9]+$/ ? substr(r, 7) : named[r]; by_number[n + 0] = r }
                for (n = 0; n in by_number; ++n) {
                    r = by_number[n]
                    line = "| " n " | " r " | " types[role_type[r]] " |"
                    for (g = 0; g < ngroups; ++g) if (g in has_role) line = line " " ((r, g) in role_param ? role_param[r, g] " " : "") "|"
                    print line
                }
            } else if (table == "arrays") {
                head("| array | elements | bytes |")
                for (t = 0; t < ntypes; ++t) print "| " list(t, t) " | " thousands(total[t]) " | " thousands(bytes[t]) " |"
            } else if (table == "updates") {
                head("| update type | arrays, in this order | whole message | fragments |")
                for (u = 1; u < limit["update_type_limit"]; ++u) {
                    if (!(u in update) || update[u] in told) continue
                    told[update[u]]
                    line = "| " u
                    for (v = u + 1; v < limit["update_type_limit"]; ++v)
                        if (v in update && update[v] == update[u]) line = line ", " v
                    size = whole(first[u], last[u])
                    print line " " update[u] " | " list(first[u], last[u]) " | " thousands(size) " bytes | " fragments(size) " |"
                }
                size = whole(first[0], last[0])
                line = "| any other | " first[0] " to " last[0] " | " thousands(size) " bytes | "
                print line (size > limit["max_message"] ? "does not fit: at most " thousands(limit["max_message"]) : fragments(size)) " |"
            } else if (table == "image") {
                head("| offset | size | what |")
                print "| 0 | " limit["update_header"] " | the header, of type 0 |"
                for (at = limit["update_header"] + (t = 0); t < ntypes; at += 4 + bytes[t++])
                    print "| " thousands(at) " | " thousands(4 + bytes[t]) " | length, and array " list(t, t) " |"
            } else if (table == "changes") by_value(0)
            else if (table == "values") by_value(1)
        }' "$work/model"
}

# A document with its tables as they are generated.
regenerated()
{
    local line name
    while IFS= read -r line; do
        echo "$line"
        case $line in
            '<!-- generated: '*' -->')
                name=${line#'<!-- generated: '}
                generate "${name%' -->'}"
                while IFS= read -r line && [ "$line" != '<!-- end -->' ]; do :; done
                echo "$line"
                ;;
        esac
    done <"$1"
}

for document in "$source"/README.md "$source"/Documentation/*.md; do
    regenerated "$document" >"$work/document"
    sed -n 's/^<!-- generated: \(.*\) -->$/\1/p' "$document" >>"$work/used"
    [ -z "$update" ] || cmp -s "$document" "$work/document" || cat "$work/document" >"$document"
    diff "$document" "$work/document" >"$work/diff" || fail "$document says (<) and ought to say (>): $(cat "$work/diff")"
done
# In sentences, too.
[ "$(cat "$source"/*.md "$source"/Documentation/*.md | grep -oE '24[0-9],[0-9]{3}|[0-9]+ groups' | sort -u | tr '\n' ' ')" = "241,339 51 groups " ] ||
    fail "how many parameters and groups: $(grep -noE '24[0-9],[0-9]{3}|[0-9]+ groups' "$source"/*.md "$source"/Documentation/*.md)"
[ "$(sort "$work/used" | tr '\n' ' ')" = "arrays changes common groups image types updates values " ] ||
    fail "the generated tables: $(sort "$work/used" | tr '\n' ' ')"
finish
