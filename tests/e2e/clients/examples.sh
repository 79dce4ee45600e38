#!/usr/bin/env bash
# Builds and runs the programs of docs/writing-clients.md against an installation that was moved.
#
# usage: examples.sh BUILD_FOLDER, inside an appliance
set -euo pipefail
project=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../../..")
. "$project/tools/daemon.sh"
cd "$(mktemp -d)"
cmake --install "$1" --prefix installed >/dev/null
mv installed moved
prefix=$PWD/moved
startDaemon

# example LANGUAGE [N]: the nth block of that language.
example() {
    awk -v start="\`\`\`$1" -v n="${2-1}" '/^```$/ { on = 0 } on; $0 == start { on = ++count == n }' \
        "$project/docs/writing-clients.md"
}

# expect OUTPUT COMMAND...
expect() {
    local output
    output=$("${@:2}")
    [ "$output" = "$1" ] || { printf '%s\nprinted\n%s\nnot\n%s\n' "${*:2}" "$output" "$1"; exit 1; }
}

example c >printer.c
example cpp >printer.cpp
example cmake >CMakeLists.txt
read -ra flags < <(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs ostrelClient)
flags+=(-Wall -Wextra -Werror -pedantic "-Wl,-rpath,$prefix/lib")
gcc -std=c11 -o inC printer.c "${flags[@]}"
g++ -std=c++17 -o inCpp printer.cpp "${flags[@]}"
cmake -B build -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build >/dev/null
expect $'domain: lan\nhost 2' ./inC
expect $'domain: lan\nhost 3' build/printer
expect $'domain: lan\nhost 4' ./inCpp
PYTHONPATH=$prefix/lib/python3/dist-packages expect $'domain: lan\nhost 5' python3 -c "$(example python)"
expect $'lan.domain String "lan"\nhost[6] instance host "dns"' bash -c "$(example sh 2)"
