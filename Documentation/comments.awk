# Shows a header to Doxygen with its plain comments as documentation, each line in its place: the file's opening comment, the
# comment before a declaration, which goes for those that follow without a blank line as well, and the one behind a member. A
# comment before a blank line belongs to no declaration. What needs a comment and has none gets a command that Doxygen does not
# know: a warning.

# A comment's line without its marks.
function text_of(i,    text)
{
    text = line[i]
    sub(/^ *\/\/ ?/, "", text)
    return text
}

# A comment means what it says: only `code` and what is indented are more than text. What stands in quotation marks Doxygen leaves
# alone by itself.
function plain(text)
{
    gsub(/&/, "\\&amp;", text)
    gsub(/</, "\\&lt;", text)
    gsub(/[*%#]/, "\\\\&", text)
    return text
}

function shown(text,    result)
{
    while (match(text, /"[^"]*"|`[^`]*`/))
    {
        result = result plain(substr(text, 1, RSTART - 1)) substr(text, RSTART, RLENGTH)
        text = substr(text, RSTART + RLENGTH)
    }
    return result plain(text)
}

# The comment of these lines in one line, to stand before one more declaration.
function in_one_line(first, last,    i, text, block, result)
{
    for (i = first; i <= last + 1; ++i)
    {
        text = i <= last ? text_of(i) : ""
        if (text ~ /^  /)
        {
            gsub(/&/, "\\&amp;", text)
            gsub(/</, "\\&lt;", text)
            block = block text "&#10;"
            continue
        }
        if (block) result = result "@htmlonly<pre class=\"fragment\">" block "</pre>@endhtmlonly "
        block = ""
        result = result (text == "" && i <= last ? " <p>" : " " shown(text))
    }
    sub(/ +$/, "", result)
    return "/**" result " */ "
}

function is_comment(i) { return line[i] ~ /^ *\/\// }
function is_type(i) { return line[i] ~ /^ *(class|struct|union|enum|namespace) / && line[i] !~ /;$/ }
function is_template(i) { return line[i] ~ /^ *template </ }

# What a comment before another member never means.
function is_special(i) { return line[i] ~ /~|= delete|operator=\(|\(const [A-Za-z]+& other\);/ }

# Public types that have a name, and functions outside of classes. A specialisation is what its template is.
function needs_comment(i)
{
    if (line[i - 1] ~ /^ *template <>/) return 0
    if (is_type(i)) return line[i] !~ /^ *(namespace |(enum|struct|union)( :.*)?$)/ && (line[i] ~ /^[a-z]/ || !hidden)
    return line[i] ~ /^[A-Za-z].*\(/ && line[i] !~ /^(template|constexpr|typedef|using) /
}

# A comment goes for the declarations from a line on, up to a blank line.
function spread(comment, i,    depth, between)
{
    for (; i <= NR; ++i)
    {
        if (depth == 0 && (line[i] ~ /^(#|$)|^ *(\}|public:|protected:|private:)/ || is_comment(i))) return
        if (between && is_special(i)) return
        commented[i] = 1
        if (between) before[i] = comment
        depth += gsub(/\{/, "{", line[i]) - gsub(/\}/, "}", line[i])
        between = depth == 0 && line[i] ~ /[;}]( +\/\/.*)?$/
    }
}

# The comment that begins at a line. Returns its last line.
function document(first,    last, next_line, i)
{
    for (last = first; is_comment(last + 1); ++last) ;
    next_line = last + 1
    if (line[next_line] == "") return last
    commented[next_line] = 1
    if (is_template(next_line)) commented[++next_line] = 1
    if (!is_type(next_line)) spread(in_one_line(first, last), last + 1)
    for (i = first; i <= last; ++i) line[i] = "/// " (text_of(i) ~ /^  / ? "  " text_of(i) : shown(text_of(i)))
    return last
}

# Of no use to a reader: instantiations, and what the compiler checks.
function skip(i)
{
    while (line[i] !~ /;$/) line[i++] = ""
    line[i] = ""
    return i
}

# Included into an enumeration, a table has an enumerator in each row, and mostly says what it is. Doxygen would not look there.
function enumerators(i,    file, row, name, result)
{
    file = FILENAME
    match(line[i], /".*"/)
    sub(/[^\/]*\/[^\/]*$/, substr(line[i], RSTART + 1, RLENGTH - 2), file)
    while ((getline row < file) > 0)
    {
        if (!match(row, /^[A-Z_]+\(/)) continue
        name = substr(row, RLENGTH + 1)
        sub(/[^A-Za-z0-9_].*/, "", name)
        result = result prefix name ", "
        if (match(row, /".*"/)) result = result "/**< " shown(substr(row, RSTART + 1, RLENGTH - 2)) " */ "
    }
    close(file)
    return result
}

{ line[NR] = $0 }

END {
    name_of_file = FILENAME
    sub(/.*\//, "", name_of_file)
    for (i = 1; i <= NR; ++i)
    {
        if (is_comment(i)) i = document(i)
        else if (line[i] ~ /^#pragma once/) line[i] = "/** @file " name_of_file (commented[i] ? "" : " @uncommented") " */"
        else if (enumeration && line[i] ~ /^#/)
        {
            if (line[i] ~ /^#define/) prefix = line[i] ~ / en##/ ? "en" : ""
            line[i] = line[i] ~ /^#include/ ? enumerators(i) : ""
        }
        else if (line[i] ~ /^(extern template|static_assert)/) i = skip(i)
        else
        {
            if (line[i] ~ /^(class|struct|union|enum|\})/) hidden = line[i] ~ /^class/
            if (line[i] ~ /^(enum|\})/) enumeration = line[i] ~ /^enum/
            if (line[i] ~ /^(public|protected|private):/) hidden = line[i] !~ /^public/
            if (!commented[i] && needs_comment(i)) before[i] = "/** @uncommented */ "
            if (line[i] !~ /^#/ && match(line[i], /[^ {}] +\/\/ /))
                line[i] = substr(line[i], 1, RSTART) " ///< " shown(substr(line[i], RSTART + RLENGTH))
        }
    }
    for (i = 1; i <= NR; ++i) print before[i] line[i]
}
