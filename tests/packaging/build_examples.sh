#!/bin/bash
# Builds the installed examples as others would: with pkg-config, in C11 and in C++20, against the shared libraries and
# the static ones, and with find_package.
#
# Usage: build_examples.sh PREFIX WORK
set -euo pipefail

prefix=$1 work=$2
examples=$prefix/share/doc/libvesk-dev/examples
libraries=$(dirname "$(find "$prefix/lib" -name libvesk.a)")
export PKG_CONFIG_PATH=$libraries/pkgconfig
warnings=(-Wall -Wextra -Werror)
rm -rf "$work"
mkdir -p "$work"
cd "$work"

# By pkg-config. Of a library that is there in both kinds, -l:libvesk.a is the static library and nothing else.
needs() { pkg-config --cflags --libs vesk ornsupport libcrypto; }
needs_static() {
  pkg-config --cflags --libs --static vesk ornsupport |
    sed 's/-lvesk\b/-l:libvesk.a/g; s/-lornsupport\b/-l:libornsupport.a/g'
}
cc -std=c11 "${warnings[@]}" "$examples/fetch_key.c" -o shared_c $(needs) &
c++ -std=c++20 "${warnings[@]}" "$examples/fetch_key.cc" -o shared_cc $(needs)
wait $!
cc -std=c11 "${warnings[@]}" "$examples/fetch_key.c" -o static_c $(needs_static) &
c++ -std=c++20 "${warnings[@]}" "$examples/fetch_key.cc" -o static_cc $(needs_static)
wait $!
cc -std=c11 "${warnings[@]}" "$examples"/own_support/*.c $(pkg-config --cflags vesk) \
  "$(pkg-config --variable=libdir vesk)/libvesk.a" $(pkg-config --libs libssl libcrypto) -lstdc++ -o own_support
for program in shared_c shared_cc; do readelf --dynamic $program | grep -q 'NEEDED.*libvesk.so.1'; done
for program in static_c static_cc own_support; do ! readelf --dynamic $program | grep -E 'NEEDED.*lib(vesk|ornsupport)'; done

configure() {
  cmake -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="${warnings[*]}" \
    -DCMAKE_CXX_FLAGS="${warnings[*]}" "$@"
}
configure -S "$examples" -B shared >shared.log || { cat shared.log; exit 1; }
cmake --build shared
configure -S "$examples" -B static -DSTATIC=ON >static.log || { cat static.log; exit 1; }
cmake --build static --target fetch_key fetch_key_digest

# A project that knows no C++.
mkdir c
cat >c/CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(c LANGUAGES C)
find_package(vesk REQUIRED)
add_executable(fetch_key "$examples/fetch_key.c")
target_link_libraries(fetch_key vesk::vesk_static vesk::ornsupport_static)
END
configure -S c -B c/build >c.log || { cat c.log; exit 1; }
cmake --build c/build
