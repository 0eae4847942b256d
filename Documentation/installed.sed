# The pages as they are installed: examples lie in other folders, and a link to what is not installed is none.
s/\](\(\.\.\/\)*Python\/Examples\//](\1..\/python3-logicalcontrols\/examples\//g
s/\](\(\(\.\.\/\)*\)Examples\//](\1examples\//g
s/\[\([^]]*\)\](\(\.\.\/\)*Source\/[^)]*)/\1/g
s/\[\([^]]*\)\](LICENSE)/\1/g
