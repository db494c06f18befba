#!/usr/bin/env bash
# Tries out what `cmake --install` makes, as its users do: check_package.sh CHECK BUILD, where CHECK is one of the
# functions below. The compilers come from CC and CXX; EMULATOR runs the programs, where they are of another processor.
set -euo pipefail

check=$1
build=$2
consumer=$(cd "$(dirname "$0")/consumer" && pwd -P)
root=$build/package-root
prefix=$root/opt/norv
libraries=$prefix/$LIBDIR
read -r -a emulator <<<"${EMULATOR:-}"

# A staged installation into an empty root, for another prefix than the one that was configured.
install() {
    rm -rf "$root"
    DESTDIR=$root cmake --install "$build" --prefix /opt/norv >"$build/package-install.log"
}

run() {
    LD_LIBRARY_PATH=$libraries "${emulator[@]}" "$@"
}

# The files that belong to the package, and nothing else of the project.
files() {
    local installed strays
    installed=$(find "$prefix" -type f -printf '%P\n')
    strays=$(grep -vE <<<"$installed" \
        -e '^include/norv_[a-z0-9_]+\.h$' \
        -e "^$LIBDIR/libnorv_(base|io_linux)\.so(\.[0-9]+)+\$" \
        -e "^$LIBDIR/cmake/norv_io_linux/norv_io_linux-config[a-z-]*\.cmake\$" \
        -e "^$LIBDIR/pkgconfig/norv_(base|io_linux)\.pc\$" \
        -e '^bin/norv$' -e '^share/man/man1/norv\.1$' \
        -e '^share/(bash-completion/completions/norv|zsh/site-functions/_norv)$' \
        -e '^share/(man/man3|doc/norv_io_linux)/') || return 0
    printf 'FAILED: these files have no business in the package:\n%s\n' "$strays"
    return 1
}

flags() {
    PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_LIBDIR=$libraries/pkgconfig pkg-config --cflags --libs "$1"
}

# build_with_pkg_config COMPILER SOURCE MODULE
build_with_pkg_config() {
    local compiler=$1 source=$2 program
    local -a compile options
    program=$build/package-$(basename "$source")
    read -r -a compile <<<"$compiler"
    read -r -a options <<<"$(flags "$3")"
    "${compile[@]}" -Wall -Wextra -Werror "$consumer/$source" -o "$program" "${options[@]}"
    run "$program"
}

pkg_config_c() { build_with_pkg_config "$CC" consumer.c norv_io_linux; }
pkg_config_cpp() { build_with_pkg_config "$CXX" consumer.cpp norv_io_linux; }
pkg_config_base() { build_with_pkg_config "$CC" consumer_base.c norv_base; }

cmake_package() {
    local work=$build/package-cmake program
    rm -rf "$work"
    cmake -S "$consumer" -B "$work" -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_PREFIX_PATH="$prefix" >"$work.log"
    cmake --build "$work" >>"$work.log"
    for program in consumer_c consumer_cpp consumer_base; do
        run "$work/$program"
    done
}

"$check"
