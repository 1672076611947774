#!/usr/bin/env bash
# Builds the Debian packages of the library, its development files and the programs, in build/debian/packages, and has
# lintian look at them. What is missing is installed.
#
#   package.sh [FOLDER]   builds in FOLDER instead of build/debian
set -euo pipefail
. "$(dirname "$0")/help.sh"
cd "$(dirname "$0")/.."

folder=${1:-build/debian}

bash scripts/setup.sh --packages

cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON \
  -DQCF_DEBIAN=ON -DBUILD_TESTING=OFF -DQCF_BUILD_EXAMPLES=OFF
cmake --build "$folder" --parallel "$(nproc)"
rm -rf "$folder/packages"
(cd "$folder" && cpack)

lintian --allow-root --fail-on error "$folder"/packages/*.deb
printf '%s\n' "$folder"/packages/*.deb
