#!/usr/bin/env bash
# What the library takes on the target, against its budget: a line is BYTES, a tab, WHAT. Fails when one is more than 5 % above it.
#   target_size.sh BUDGET TABLE LIBRARY TOOLS-PREFIX EMULATOR... CONTAINER_MEMORY      writes TABLE as well
set -eu
budget=$1 table=$2 library=$3 tools=$4
shift 4
stripped=$(mktemp) || exit 1
trap 'rm -f "$stripped"' EXIT
"${tools}strip" -o "$stripped" "$library"

all=$("${tools}size" -A "$library")
container=$("$@")
# sections PATTERN: the bytes of those of that name.
sections() { awk -v pattern="^[.]($1)\$" '$1 ~ pattern { sum += $2 } END { print sum + 0 }' <<<"$all"; }
{
    printf '%d\tlibrary, stripped\n' "$(wc -c <"$stripped")"
    printf '%d\tlibrary, code and constants\n' "$(sections 'text|rodata.*')"
    printf '%d\tlibrary, tables for stacks and exceptions\n' "$(sections 'eh_frame.*|gcc_except_table.*')"
    printf '%d\tlibrary, data in each process\n' "$(sections '(data|sdata|bss|sbss|got|got2|plt|init_array|fini_array)|data[.]rel.*')"
    printf '%d\tcontainer, resident\n' "$container"
} >"$table"
awk -F '\t' '
    /^#/ { next }
    FILENAME == ARGV[1] && ($1 !~ /^[1-9][0-9]*$/ || $2 in budget) { print "no budget, or a second one: " $0; failed = 1 }
    FILENAME == ARGV[1] { budget[$2] = $1; next }
    {
        above = !($2 in budget) || $1 <= 0 || $1 > budget[$2] * 1.05
        failed = failed || above
        printf "%10d %10s  %s%s\n", $1, budget[$2], $2, above ? "  NOT WITHIN" : ""
        ++compared
    }
    END { exit failed || compared != 5 }
' "$budget" "$table"
