#!/usr/bin/env bash
# The library built against given in-house libraries instead of the stand-ins, installed, and used by a C++14 client through the
# CMake package.    package.sh SOURCE_DIR CXX
set -eu
source=$1 cxx=$2
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

mkdir "$work/inhouse"
for file in CSocket CSocketThread CUtility; do
    "$cxx" -std=c++17 -O1 -fPIC -I"$source/Source/InHouse" -c "$source/Source/InHouse/RySocketIO/$file.cpp" -o "$work/inhouse/$file.o"
done
ar rcs "$work/inhouse/libinhouse.a" "$work"/inhouse/*.o
cp -r "$source/Source/InHouse" "$work/inhouse/include"

configure=(cmake -G Ninja -DCMAKE_CXX_COMPILER="$cxx")
library=("${configure[@]}" -S "$source" -B "$work/library" -DLOGICALCONTROLS_TESTS=OFF -DLOGICALCONTROLS_TOOLS=OFF)
if "${library[@]}" -DLOGICALCONTROLS_INHOUSE_LIBRARY="$work/inhouse/libinhouse.a" >/dev/null 2>&1; then
    echo "FAILED: a library without its headers was accepted"
    exit 1
fi
"${library[@]}" -DLOGICALCONTROLS_INHOUSE_LIBRARY="$work/inhouse/libinhouse.a" \
    -DLOGICALCONTROLS_INHOUSE_INCLUDE_DIR="$work/inhouse/include" | grep "In-house libraries: $work/inhouse/libinhouse.a"
cmake --build "$work/library"
DESTDIR=$work/stage cmake --install "$work/library" --prefix /opt/console >/dev/null

if nm -DC --defined-only "$work"/stage/opt/console/lib*/liblogicalcontrols.so | grep -E 'ReportStack|CheckWord|MoveMasked|CReceiver::|[^:]xml[A-Z]'; then
    echo "FAILED: these internals are exported"
    exit 1
fi
if ! cmp "$source/Source/Common/Diagnostics/xml_validation.xsd" "$work/stage/opt/orvik/bin/xml_validation.xsd"; then
    echo "FAILED: the schema is not where the reader looks for it"
    exit 1
fi
if [ -n "$(find "$work/stage" -name RySocketIO -o -name 'MaskedMove.h' -o -name 'StopEvent.h')" ]; then
    echo "FAILED: stand-ins or private headers were installed"
    exit 1
fi

mkdir "$work/client"
cp "$source/Examples/first_client.cpp" "$work/client"
cat >"$work/client/CMakeLists.txt" <<'CLIENT'
cmake_minimum_required(VERSION 3.25)
project(Client CXX)
find_package(LogicalControls 0.1 REQUIRED)
add_executable(client first_client.cpp)
set_target_properties(client PROPERTIES CXX_STANDARD 14 CXX_STANDARD_REQUIRED ON)
target_include_directories(client PRIVATE ${INHOUSE})
target_link_libraries(client PRIVATE LogicalControls::logicalcontrols)
CLIENT
"${configure[@]}" -S "$work/client" -B "$work/client/build" -DCMAKE_PREFIX_PATH="$work/stage/opt/console" \
    -DINHOUSE="$work/inhouse/include" >/dev/null
cmake --build "$work/client/build"
echo "passed"
