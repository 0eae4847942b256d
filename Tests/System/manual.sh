#!/usr/bin/env bash
# The manual's pages and completion: all that a subcommand's help says is on its page, the pages read without a warning, shells
# complete what they should, and all of it is installed.    manual.sh BUILD_DIR CONSOLECTL...
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"
enter_own_network "$@"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
build=$1
shift
program=("$@")

# Of a command, in the words of its help.
help() { "${program[@]}" "$@" --help; }
subcommands() { help "$@" | awk '/^[^ ]/ { on = /^Subcommands:/; next } on && /^  [^ ]/ { print $1 }'; }
options() { described "$@" | awk -F '\t' '/^-/ { gsub(", ", "\n", $1); print $1 }'; }

# Its options and arguments, as "-h, --help<tab>beginning of the description". After a long name that is in the next line.
described()
{
    help "$@" | awk '
        /^[^ ]/ { on = /^(Options|Arguments):/; next }
        { line = $0; sub(/^ +/, "", line) }
        on && /^(  [^ ]|      -)/ {
            name = line
            sub(/  .*/, "", name)
            line = substr(line, length(name) + 1)
            sub(/^ +/, "", line)
            if (name ~ /^-/) sub(/ [^-].*/, "", name) # its value
            wanted = 1
        }
        wanted && line != "" { print name "\t" line; wanted = 0 }'
}

# What can be run: "mc", "show save", and "manual", which is on no list.
commands()
{
    for command in manual $(subcommands); do
        echo "$command"
        subcommands "$command" | sed "s/^/$command /"
    done
}

# A command's part of its page, as it is read: without the marks of fonts and characters.
part_of_page()
{
    sed 's/\\f[BIR]//g; s/\\(aq/'\''/g; s/\\(dq/"/g; s/\\(rs/\\/g; s/\\&//g; s/\\-/-/g' "$work/man1/consolectl-$1.1" |
        awk -v head=".SS \"consolectl $*\"" -v whole=$(($# == 1)) '/^\.S[SH]/ { on = $0 == head } on || whole'
}

# A list item of the page read has these names, and a description that starts so.
has_item()
{
    awk -v names="$1" -v text="$2" '
        head && index($0, text) == 1 { found = 1 }
        { head = $0 == names || index($0, names " ") == 1 }
        END { exit !found }'
}

refuse()
{
    expect 2 "manual ${*:2}" "${program[@]}" manual "${@:2}"
    contains "$1"
}
refuse "WHAT is required"
refuse '"html" is none of bash, man, zsh' html
expect 1 "no folder" "${program[@]}" manual man "$work/none"
contains "$work/none/consolectl-diagnostics.1: No such file or directory"
expect 1 "nowhere to print to" sh -c 'exec "$@" >/dev/full' sh "${program[@]}" manual man
mkdir "$work/full" "$work/man1" "$work/bash" "$work/zsh"
ln -s /dev/full "$work/full/consolectl"
expect 1 "a full disk" "${program[@]}" manual bash "$work/full"
contains "$work/full/consolectl: No space left on device"
for folder in man1 bash zsh; do
    expect 0 "$folder" "${program[@]}" manual "${folder%1}" "$work/$folder"
    [ -z "$output" ] || fail "$folder: $output"
    expect 0 "$folder to standard output" "${program[@]}" manual "${folder%1}"
    [ "$output" = "$(cat "$work/$folder"/*)" ] || fail "$folder: not the same on standard output"
done

# Pages.
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
title=$(head -n 1 "$work/man1/consolectl.1")
[ "$title" = ".TH \"CONSOLECTL\" 1 \"\" \"consolectl $version\"" ] || fail "the title: $title"
pages=$({ echo consolectl.1 && { echo manual && subcommands; } | sed 's/.*/consolectl-&.1/'; } | sort)
[ "$(cd "$work/man1" && printf '%s\n' * | sort)" = "$pages" ] || fail "pages: $(ls "$work/man1"), but wanted: $pages"
sought=0
while read -ra command; do
    page=$(part_of_page "${command[@]}")
    while IFS=$'\t' read -r names text; do
        if [ "$names" != "-h, --help" ] || [ ${#command[@]} = 1 ]; then # which is once on a page
            printf '%s\n' "$page" | has_item "$names" "$text" || fail "${command[*]}: no $names, \"$text\" on the page"
            sought=$((sought + 1))
        fi
    done < <(described "${command[@]}")
done < <(commands)
[ "$sought" -ge 50 ] || fail "only $sought options and arguments were sought"
grep -qF '\fBconsolectl show save\fR [\fIOPTION\fR]... \fIFILE\fR \fINAME\fR' "$work/man1/consolectl-show.1" ||
    fail "the synopsis of show save"
grep -qF "consolectl set MicInput/12/Fader/0 \\-6.5 MicInput/12/String/1 \\(aqLead Vocal\\(aq" "$work/man1/consolectl-set.1" ||
    fail "the example of set"
grep -qF "(not with \\-\\-at, \\-\\-silent)" "$work/man1/consolectl-replay.1" || fail "what --loop does not go with"
grep -qF "(1 to 65535, default 7060)" "$work/man1/consolectl-mc.1" || fail "limits and default of a port"
for status in 0 1 2 27; do
    grep -qx "$status" "$work/man1/consolectl-get.1" || fail "exit status $status is not on the page"
done
for reader in "groff -Tutf8 -man -ww -z" "man --warnings -l"; do
    if ! command -v "${reader%% *}" >/dev/null; then
        echo "skipped: there is no ${reader%% *} here to read the pages"
        continue
    fi
    for page in "$work"/man1/*; do
        # shellcheck disable=SC2086
        warnings=$($reader "$page" 2>&1 >/dev/null </dev/null)
        [ -z "$warnings" ] || fail "$reader $page: $warnings"
    done
done

# What bash is given for the last of these words: an option of compopt, if any, and the words that it may be.
completion()
{
    # shellcheck disable=SC2016
    cd "$work/one_file" && bash --norc -c '
        . "$1"
        compopt() { options=$*; }
        COMP_WORDS=(consolectl "${@:2}") COMP_CWORD=$(($# - 1)) options=
        _consolectl
        echo $options "${COMPREPLY[@]}"' bash "$work/bash/consolectl" "$@" 2>&1
}
mkdir "$work/one_file"
touch "$work/one_file/mcs.image"
completes() # WANTED WORD...
{
    got=$(completion "${@:2}")
    [ "$got" = "$1" ] || fail "completion of ${*:2}: $got, not $1"
}
completes "$(subcommands | xargs)" ""
completes "diagnostics" di
while read -ra command; do
    completes "$(options "${command[@]}" | xargs)" "${command[@]}" -
    below=$(subcommands "${command[@]}" | xargs)
    [ -z "$below" ] || completes "$below" "${command[@]}" ""
    # Where there is a --format, the words of its type.
    format=$(help "${command[@]}" | sed -n 's/^ *--format \([a-z|]*\).*/\1/p')
    [ -z "$format" ] || completes "${format//|/ }" "${command[@]}" --format ""
done < <(commands)
completes "--help" --h
completes "$(options show list | xargs)" show list shows ""
completes "save" show sa
completes "--scope" show save shows Monday --sc
completes "-o default" show save ""
completes "" show save shows ""
completes "-o default" verify A im
completes "-o filenames mc mcs.image" verify mc ""
completes "-o filenames mc mcs.image" get --from mc
completes "-o default" mc --save ""
completes "-o default" mc --save = im
completes "on off" show scope --recall ""
completes "off" show scope --store ""
completes "bash man zsh" manual ""
completes "bash" manual b
completes "" manual bash ""
completes "" mc --port ""
completes "" mc --port -
completes "--loss" mc --port 7061 --lo
completes "--statistics" follow --save image --set MicInput/0/Fader/0 = -6 --st
completes "" follow --set MicInput/0/Fader/0 =
completes "" set MicInput/12/String/1 a = Glob
completes "-o nospace Globals/" set MicInput/12/String/1 a = b Glob
interfaces=$(cd /sys/class/net && printf '%s' */ | tr / ' ' | xargs)
completes "$interfaces" follow --interface ""
completes "$interfaces" follow --interface =
completes "lo" follow --seconds 3 --interface lo
completes "-o nospace MicInput/ MicSplitCPU/" get Mic
completes "-o nospace VCAGroups/" get "'MicInput/*/Fader/0'" --timeout 3 VCA
completes "-o nospace" get MicInput/
completes "-o nospace MicInput/12/String MicInput/12/Switch" get MicInput/12/S
completes "-o nospace */*/Fader" get "'*/*/F"
completes "-o nospace" get MicInput/12/Fader/
completes "-o nospace MicInput/" set --direct MicI
completes "" set MicInput/12/Fader/0 M
completes "-o nospace Globals/" set MicInput/12/Fader/0 -6.5 Glob
completes "-o nospace MainOut/" follow --set Mai
completes "-o nospace Globals/" show recall shows Monday --safe Glob

# What a shell calls consolectl with, for each of these lines typed on a terminal. With $shown, each is ended when that is there.
typed() # SHELL SETUP LINE...
{
    # shellcheck disable=SC2016
    (cd "$work/files" && TERM=xterm timeout 60 zsh -f -c '
        zmodload zsh/zpty && zpty terminal $1 || exit
        zpty -w terminal $2"; consolectl() { printf \"called:\"; printf \"<%s>\" \"\$@\"; echo :done; }; echo rea""dy"
        zpty -r -m terminal output "*ready*"
        for line in $argv[3,-1]; do
            zpty -w -n terminal $line
            [[ -z ${shown-} ]] || zpty -r -m terminal output "*$shown*" || exit
            zpty -w -n terminal $'\''\r'\''
            zpty -r -m terminal output "*:done*" || exit
            print -r -- ${${output##*called:}%%:done*}
        done' zsh "$@" 2>&1)
}

# The files of $work/files, an option after a value, and an address.
lines=($'consolectl verify re\tan\\ im\t' $'consolectl diagnostics li\t--timeout 3 --va\t' $'consolectl get \'MicI\t*/Fa\t/0\''
    $'consolectl follow --save=re\t' $'consolectl set MicI\t3/Fa\t/0 Glob\t Glob\t0/Int\t/0 1' $'consolectl manual b\t')
called='<verify><report.xml><an image>
<diagnostics><listen><--timeout><3><--validate>
<get><MicInput/*/Fader/0>
<follow><--save=report.xml>
<set><MicInput/3/Fader/0><Glob><Globals/0/Integer/0><1>
<manual><bash>'
mkdir "$work/files"
touch "$work/files/report.xml" "$work/files/an image"
if ! command -v zsh >/dev/null; then
    echo "skipped: there is no zsh here, for which completion is, and which types"
else
    got=$(typed "bash --norc --noprofile -i" "HISTFILE=; . '$work/bash/consolectl'" "${lines[@]}")
    [ "$got" = "$called" ] || fail "typed into bash: $got"
    expect 0 "zsh reads its completion" zsh -n "$work/zsh/_consolectl"
    [ -z "$output" ] || fail "zsh: $output"
    setup="fpath=('$work/zsh' \$fpath); autoload -Uz compinit; compinit -u -D"
    got=$(typed "zsh -f -i" "$setup" "${lines[@]}")
    [ "$got" = "$called" ] || fail "typed into zsh: $got"
    for line in $'show \t/save     -- Store the MC\'s parameters, meters left out' \
        $'show save -\t/--replace        -- Put it in the place of a show of this name' \
        $'follow --interface=\t/interface=*'"${interfaces// /*}"; do
        got=$(shown=${line#*/} typed "zsh -f -i" "$setup" "consolectl ${line%%/*}")
        case $got in "<${line%% *}>"*) ;; *) fail "zsh does not show ${line#*/}" ;; esac
    done
fi

# Installed.
expect 0 "installed" env DESTDIR="$work/stage" cmake --install "$build" --prefix /usr
share=$work/stage/usr/share
expect 0 "pages installed" diff -r "$work/man1" "$share/man/man1"
expect 0 "completion for bash installed" diff "$work/bash/consolectl" "$share/bash-completion/completions/consolectl"
expect 0 "completion for zsh installed" diff "$work/zsh/_consolectl" "$share/zsh/site-functions/_consolectl"
finish
