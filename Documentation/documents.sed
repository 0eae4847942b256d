# The documents as the reference has them: a link leads to a page, to a header's page or to an example's copy, and there is none to
# what isn't here. For a quotation mark Doxygen looks for the other one, also in code.
/^```/,/^```/b
/^    /b
s/"/\&quot;/g
s/\](\([^):]*\/\)*\([A-Za-z]*\.h\))/](@ref \2)/g
s/\](\([^):]*\/\)*Examples\/\([A-Za-z_]*\.\(cpp\|py\)\))/](\2)/g
s/\[\([^]]*\)\](\(#[^)]*\|[^)]*\.def\))/\1/g
s/\.md#[^)]*)/.md)/g
s/\[\([^]]*\)\]([^).]*)/\1/g
