#!/usr/bin/env bash
# Installs a build into a folder of its own and checks the result as its users would: how the files are hardened, whether
# the programs run, and whether the example host can be built with CMake and with pkg-config, and does what it should.
# Usage: check_installed.sh SOURCE BUILD
set -euo pipefail

source=$1 build=$2
prefix=$build/installed
rm -rf "$prefix" "$build/minimal_host"
cmake --install "$build" --prefix "$prefix" >/dev/null
# The prefix is not among the folders that the system searches for libraries.
export LD_LIBRARY_PATH=$prefix/lib PKG_CONFIG_PATH=$prefix/lib/pkgconfig

failed=0
# expect WHAT COMMAND...: the command succeeds.
expect() {
  local what=$1
  shift
  "$@" >/dev/null || { echo "not so: $what"; failed=1; }
}
# has FILE TEXT READELF-OPTION, has_not ...: what readelf prints of a file contains the text.
has() { readelf -W "$3" "$1" | grep -E "$2"; }  # all of it is read, so that readelf can write all of it
has_not() { ! has "$@"; }
# Linkers mark a file as protected only where the system's start-up code is as well, so the code itself is looked at.
begins_with_endbr() { objdump -d --disassemble="$2" "$1" | grep -A1 "<$2>:" | grep endbr64; }

version=$(cd "$prefix/lib" && ls libkiv_proc_plugin.so.*.*.* | sed 's/.*\.so\.//')
library=$prefix/lib/libkiv_proc_plugin.so.$version
programs=$(cd "$prefix/bin" && ls)
expect "the library's soname is that of its major version" has "$library" "\[libkiv_proc_plugin.so.${version%%.*}\]" -d
expect "the library needs no stand-in" has_not "$library" 'NEEDED.*corvane' -d
for file in "$library" "$prefix/lib/libcorvane.so" "$prefix"/bin/*; do
  name=${file##*/}
  expect "$name has read-only relocations" has "$file" GNU_RELRO -l
  expect "$name binds at load time" has "$file" 'FLAGS.*NOW' -d
  expect "$name has no executable stack" has_not "$file" 'GNU_STACK.* RWE' -l
  expect "$name has no RUNPATH" has_not "$file" 'RUNPATH|RPATH' -d
  expect "$name has a stack protector" has "$file" __stack_chk_fail --dyn-syms
  if [[ $(uname -m) == x86_64 ]]; then
    case $name in
      libcorvane*) function=property_get ;;
      lib*) function=OnInit ;;
      *) function=main ;;
    esac
    expect "$name has control-flow protection" begins_with_endbr "$file" $function
  fi
done
for program in $programs; do
  expect "$program is position-independent" has "$prefix/bin/$program" 'FLAGS_1.*PIE' -d
  expect "$program has checked library calls" has "$prefix/bin/$program" '_chk@' --dyn-syms
  expect "$program knows its version" grep -q " $version\$" <("$prefix/bin/$program" --version)
  page=$prefix/share/man/man1/$program.1
  if command -v help2man >/dev/null; then expect "$program has a man page with its options" grep -q -- '\\-\\-help' "$page"; fi
done
expect "kiv_replay finds the plugin" "$prefix/bin/kiv_replay" "$source/examples/recording.har"

# check_host FLAVOUR PROGRAM
check_host() {
  expect "the example host built with $1 says what it should" \
    diff "$source/examples/minimal_host/expected_output.txt" <("$2" "$prefix/lib/libkiv_proc_plugin.so")
}
cmake -S "$source/examples/minimal_host" -B "$build/minimal_host" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$build/minimal_host" >/dev/null
check_host CMake "$build/minimal_host/minimal_host"

read -ra flags < <(pkg-config --cflags --libs corvane)
g++ -std=c++20 -rdynamic "$source/examples/minimal_host/minimal_host.cc" "${flags[@]}" -o "$build/minimal_host/by_pkg_config"
check_host pkg-config "$build/minimal_host/by_pkg_config"
exit $failed
