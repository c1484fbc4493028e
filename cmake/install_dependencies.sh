#!/bin/sh
# Installs the Debian packages that a build, the tests and the demo need and that are not there yet. More package names may
# be given as arguments. Silent when nothing is missing; does nothing where there is no dpkg.
set -eu

packages="g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev
    libgles-dev libegl-dev libegl1 libgles1 libgl1-mesa-dri libegl-mesa0 libcli11-dev
    libpng-dev libwebp-dev nlohmann-json3-dev $*"

command -v dpkg-query >/dev/null || exit 0

missing=""
for package in $packages; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

asRoot=""
if [ "$(id -u)" != 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "These packages are missing, and installing them needs root: apt-get install$missing" >&2
        exit 1
    fi
    asRoot=sudo
fi

echo "Installing:$missing"
install() { $asRoot env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >/dev/null; }
# The package lists of a fresh machine may be empty or old, so they are fetched only when installing fails without.
if ! install 2>/dev/null; then
    $asRoot apt-get update -qq && install && exit 0
    echo "These packages could not be installed; the build needs them:$missing" >&2
    exit 1
fi
