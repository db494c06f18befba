#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries out what `cmake --install` makes, as its users do: check_package.sh CHECK BUILD, where CHECK is one of the
# functions below. The compilers come from CC and CXX; EMULATOR runs the programs, where they are of another processor;
# OPTIMISED is 1 for a build type with an optimising compiler.
set -euo pipefail

check=$1
build=$2
source=$(cd "$(dirname "$0")/../.." && pwd -P)
consumer=$source/tests/package/consumer
work=$build/package
moved=$work/moved  # a tree of a prefix of one's own, which is no longer where it was installed
root=$work/root    # a board's file system, with the package below /usr
libraries=$moved/$LIBDIR
# A linker that records the libraries that a program calls, and no others, is the default of several distributions.
strict=-Wl,--as-needed
read -r -a emulator <<<"${EMULATOR:-}"

install() {
    rm -rf "$work"
    mkdir -p "$work/first"
    {
        (cd "$work/first" && cmake --install "$build" --prefix build/norv)
        DESTDIR=$root cmake --install "$build" --prefix /usr --strip
    } >"$build/package-install.log"
    mv "$work/first/build/norv" "$moved"
}

# Nothing shows the loader where the libraries are: programs find them by themselves.
run() {
    env --unset=LD_LIBRARY_PATH "${emulator[@]}" "$@"
}

# The files that belong to the package, and nothing else of the project.
files() {
    local installed strays
    installed=$(find "$root" -type f -printf '%P\n')
    strays=$(grep -vE <<<"$installed" \
        -e '^usr/include/norv_[a-z0-9_]+\.h$' -e '^usr/include/norv(/[a-z0-9_]+)?\.hpp$' \
        -e "^usr/$LIBDIR/libnorv_(base|io_linux)\.so(\.[0-9]+)+\$" \
        -e "^usr/$LIBDIR/cmake/norv_io_linux/norv_io_linux-config[a-z-]*\.cmake\$" \
        -e "^usr/$LIBDIR/pkgconfig/norv_(base|cpp|io_linux)\.pc\$" \
        -e '^usr/bin/norv$' -e '^usr/share/man/man1/norv\.1$' \
        -e '^usr/share/(bash-completion/completions/norv|zsh/site-functions/_norv)$' \
        -e '^usr/share/(man/man3|doc/norv_io_linux)/') || return 0
    printf 'FAILED: these files have no business in the package:\n%s\n' "$strays"
    return 1
}

# What is installed does not contain where it was built, and what is built there does not become longer with its path: two
# builds in different directories are the same.
paths() {
    local file path
    if grep -rlF -e "$source" -e "$build" "$root"; then
        echo 'FAILED: these files have a path of the build in them'
        return 1
    fi
    for file in "$build/src/libnorv_io_linux.so" "$build/base/libnorv_base.so" "$build/tools/norv/norv"; do
        [[ -e $file ]] || continue
        path=$(readelf --wide --dynamic "$file" | sed -nE 's/.*\(R(UN)?PATH\).*\[(.*)\]/\2/p')
        [[ $path != *"$build"* ]] || { echo "FAILED: $file has the search path $path" && return 1; }
    done
}

# expect FILE WHAT PATTERN: what readelf shows of the file has it.
expect() {
    grep -qE -- "$3" <<<"$elf" || { echo "FAILED: $1 has no $2" && failed=1; }
}

# The libraries and the tool are built with the compiler's and the linker's protections.
protections() {
    local file elf failed=0
    for file in "$root/usr/$LIBDIR"/libnorv_*.so.*.* "$root"/usr/bin/*; do
        [[ -e $file ]] || continue
        elf=$(readelf --wide --file-header --program-headers --dynamic --dyn-syms "$file")
        expect "$file" 'relocations that become read-only' '^ +GNU_RELRO '
        expect "$file" 'binding at load time' '\(FLAGS(_1)?\).* (BIND_)?NOW'
        expect "$file" 'stack without execution' '^ +GNU_STACK .* RW +0x'
        expect "$file" 'place-independent code' '^ +Type: +DYN '
        expect "$file" 'stack protector' ' __stack_chk_fail(@|$)'
        # The base library calls nothing that the C library could check.
        [[ $file == *libnorv_base* || $OPTIMISED -eq 0 ]] || expect "$file" 'checked buffers' ' __[a-z]+_chk(@|$)'
        if grep -q '^ *Machine: .*X86-64' <<<"$elf"; then
            elf=$(objdump --disassemble --section=.text "$file")
            expect "$file" 'marks where indirect calls may lead' '\<endbr64'
        fi
    done
    return "$failed"
}

# A warning of a compiler that the project does not know yet is not an error where its users build the libraries.
warnings() {
    local tree=$work/libraries
    env --unset=CC --unset=CXX cmake --preset libraries -S "$source" -B "$tree" >"$tree.log"
    grep -q -- ' -Wall ' "$tree/compile_commands.json"
    ! grep -q -- ' -Werror' "$tree/compile_commands.json" || { echo 'FAILED: the preset libraries has -Werror' && return 1; }
}

# build_with_pkg_config COMPILER SOURCE MODULE [OPTION...], with pkg-config's environment unchanged.
build_with_pkg_config() {
    local compiler=$1 source=$2 flags
    local -a compile options
    program=$work/$check
    flags=$(pkg-config --cflags --libs "$3")
    read -r -a compile <<<"$compiler"
    read -r -a options <<<"$flags"
    "${compile[@]}" -Wall -Wextra -Werror "$strict" "$consumer/$source" -o "$program" "${options[@]}" "${@:4}"
}

# What pkg-config says of the moved tree suffices.
pkg_config() {
    PKG_CONFIG_LIBDIR=$libraries/pkgconfig build_with_pkg_config "$@" -Wl,-rpath,"$libraries"
    run "$program"
}

pkg_config_c() { pkg_config "$CC" consumer.c norv_io_linux; }
pkg_config_cpp() { pkg_config "$CXX" consumer.cpp norv_io_linux; }
pkg_config_base() { pkg_config "$CC" consumer_base.c norv_base; }
pkg_config_cpp20() { pkg_config "$CXX" consumer_cpp20.cpp norv_cpp -std=c++20; }
pkg_config_cpp20_plain() { pkg_config "$CXX" consumer_cpp20.cpp norv_cpp -std=c++20 -fno-exceptions -fno-rtti; }
pkg_config_hardware() { pkg_config "$CC" consumer_hardware.c norv_io_linux; }

# A program for a board, built against a copy of the board's file system.
pkg_config_sysroot() {
    local -x PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_LIBDIR=$root/usr/$LIBDIR/pkgconfig
    grep -qxF prefix=/usr "$PKG_CONFIG_LIBDIR/norv_io_linux.pc" ||
        { echo "FAILED: norv_io_linux.pc does not name the prefix /usr" && return 1; }
    build_with_pkg_config "$CC" consumer.c norv_io_linux
}

cmake_package() {
    local tree=$work/cmake program
    rm -rf "$tree"
    cmake -S "$consumer" -B "$tree" -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_PREFIX_PATH="$moved" -DCMAKE_EXE_LINKER_FLAGS="$strict" >"$tree.log"
    cmake --build "$tree" >>"$tree.log"
    for program in consumer_c consumer_cpp consumer_cpp20 consumer_cpp20_plain consumer_base consumer_hardware; do
        run "$tree/$program"
    done
}

# The command by which docs/first-program.md compiles its program, with a program that needs no board.
first_program() {
    local command
    command=$(sed -n '/^    cc first\.c /,/[^\]$/p' "$source/docs/first-program.md")
    [[ -n $command ]] || { echo 'FAILED: the page has no command that compiles first.c' && return 1; }
    cd "$work/first"
    printf '#!/bin/sh\nexec %s %s "$@"\n' "$CC" "$strict" >cc
    chmod +x cc
    ln -sfn "$moved" build/norv
    cp "$consumer/consumer_hardware.c" first.c
    PATH=$PWD:$PATH bash -c "${command//norv\/lib/norv/$LIBDIR}"
    run build/first
}

# The tool finds the libraries that it was installed with.
tool() {
    run "$moved/bin/norv" --version
}

"$check"
