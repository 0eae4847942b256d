#!/usr/bin/env bash
# The README shows the first client as it is.    check_readme.sh SOURCE_DIR
set -u
cd "$1" || exit 1
shown=$(awk '/^```cpp$/ { on = 1; next } /^```$/ { on = 0 } on' README.md)
if [ "$shown" != "$(grep -v '^// The smallest client' Examples/first_client.cpp)" ]; then
    echo "FAILED: the program in README.md is not Examples/first_client.cpp"
    exit 1
fi
echo passed
