#!/usr/bin/env bash
# Installs the Debian packages that the project builds, tests and is checked with. Does nothing when
# all are there. With --ci also what only the slower checks need.
set -euo pipefail

packages=(build-essential cmake ninja-build pkg-config ccache openssl python3 curl ca-certificates
    libssl-dev libsqlite3-dev libcurl4-openssl-dev libboost-dev libmicrohttpd-dev
    nlohmann-json3-dev libspdlog-dev libcli11-dev libgtest-dev libgmock-dev libbenchmark-dev)
[[ "${1:-}" == --ci ]] && packages+=(clang clang-format libclang-rt-14-dev sqlite3)

missing=()
for package in "${packages[@]}"; do
    [[ "$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null)" == "install ok installed" ]] ||
        missing+=("$package")
done
((${#missing[@]})) || exit 0

sudo=()
[[ $EUID -eq 0 ]] || sudo=(sudo)
echo "installing: ${missing[*]}" >&2
"${sudo[@]}" apt-get update -qq >&2
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
