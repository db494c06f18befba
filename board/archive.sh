# SPDX-License-Identifier: MIT
# Sourced by board/prepare: packages of Debian's archive, fetched without root and unpacked without being installed.
# shellcheck shell=bash disable=SC2154  # board/prepare and board/common.sh set the variables

apt_options=(--quiet --quiet)
[[ $EUID -ne 0 ]] || apt_options+=(--option APT::Sandbox::User=root)

# The machine's own releases, for the board's processor: what fits the kernel headers that are installed here. Where the
# machine's lists have the package they are used; lists of our own need no root and leave the machine's alone.
own_lists=$board_cache/lists/$architecture
own_releases=(--option Dir::State::lists="$own_lists/state" --option Dir::Cache="$own_lists/cache")
machine_releases=()
if [[ $architecture != x86_64 ]]; then
    own_releases+=(--option APT::Architecture="$architecture" --option APT::Architectures="$architecture"
        --option Dir::State::status="$own_lists/nothing-installed" --option Debug::NoLocking=true)
    machine_releases=("${own_releases[@]}")
fi

update_own_lists() {
    mkdir -p "$own_lists/state/partial" "$own_lists/cache/archives/partial"
    : >"$own_lists/nothing-installed"
    # A list that cannot be had just now may be one that nothing is taken from.
    apt-get "${apt_options[@]}" "${own_releases[@]}" update >&2 || true
}

fetch_package() {
    local package=$1 target=$2
    (cd "$target" && apt-get "${apt_options[@]}" "${machine_releases[@]}" download "$package" >&2) 2>/dev/null && return
    update_own_lists
    (cd "$target" && apt-get "${apt_options[@]}" "${own_releases[@]}" download "$package" >&2)
}

# Unpacks a package of the machine's releases below a directory.
unpack_package() {
    local package=$1 target=$2
    say "fetching $package"
    mkdir "$scratch/$package"
    fetch_package "$package" "$scratch/$package" || return 1
    dpkg-deb --extract "$scratch/$package"/*.deb "$target"
}

# ---- every release: where a kernel is chosen by its name ----

every_list=$board_cache/lists/every-release
every_release=(--option Dir::Etc::sourcelist="$every_list/sources.list" --option Dir::Etc::sourceparts=/dev/null
    --option Dir::State::lists="$every_list/state" --option Dir::Cache="$every_list/cache"
    --option Dir::State::status="$every_list/nothing-installed" --option Debug::NoLocking=true
    --option APT::Architecture=amd64 --option APT::Architectures=amd64 --option Acquire::Languages=none)
releases=(bullseye bookworm bookworm-backports trixie trixie-backports sid)

# Debian's site, unless the machine takes its packages from another mirror.
mirror() {
    local found
    found=$(grep --no-filename --only-matching 'https\?://[^ ]*/debian/\? ' \
        <(cat /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null | sed 's/$/ /') | head -n 1) || true
    found=${found% }
    printf '%s' "${found:-http://deb.debian.org/debian}"
}

update_every_list() {
    local release line
    line="deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg]"
    mkdir -p "$every_list/state/partial" "$every_list/cache/archives/partial"
    : >"$every_list/nothing-installed"
    for release in "${releases[@]}"; do
        printf '%s %s %s main\n' "$line" "$(mirror)" "$release"
    done >"$every_list/sources.list"
    say "fetching the lists of ${releases[*]}"
    # It succeeds without a network, too, after a line for each list.
    apt-get "${apt_options[@]}" "${every_release[@]}" update >"$every_list/log" 2>&1 || true
    [[ -n $(every_cache madison linux-image-amd64) ]] && : >"$every_list/complete"
}

# Lists a week old still name packages that the archive has, as a rule; what they lack is looked for again.
have_every_list() { [[ -n $(find "$every_list/complete" -mtime -7 2>/dev/null) ]] || update_every_list; }

every_cache() { apt-cache "${every_release[@]}" "$@" 2>/dev/null; }
every_get() { apt-get "${apt_options[@]}" "${every_release[@]}" "$@"; }
