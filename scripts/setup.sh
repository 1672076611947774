#!/usr/bin/env bash
# Installs from the distribution what this project needs. Where all of it is there, nothing is touched.
#
#   setup.sh            to build the library, the importer and the programs, and to run the demo
#   setup.sh --tests    also what the tests and the format check need
#   setup.sh --checks   also what scripts/lint.sh, scripts/coverage.sh and scripts/verify.sh look at the code with
#   setup.sh --packages also what scripts/package.sh builds and judges Debian packages with
#   setup.sh --m32      also the 32-bit compiler and zlib of the preset m32
#   setup.sh --gnustep  also an Objective-C++ compiler with GNUstep, for the tests of the macOS glue
#   setup.sh --darwin   also what the builds for macOS on this system take (scripts/check-darwin.sh)
set -euo pipefail
. "$(dirname "$0")/help.sh"

build_packages=(
  g++ cmake ninja-build pkg-config
  zlib1g-dev libboost-dev libexpat1-dev
  libcli11-dev libfmt-dev nlohmann-json3-dev libsndfile1-dev libcairo2-dev
  sox zip unzip
)
# The compilers' and checkers' own needs first, then the independent readers and writers that judge the library's
# output, then the peers of the benchmarks, then what judges packages and pages.
test_packages=(
  libgtest-dev libgmock-dev git python3 clang clang-format libclang-rt-14-dev
  libarchive-tools p7zip-full ziptool ffmpeg
  libbenchmark-dev libzip-dev libarchive-dev libminizip-dev libavformat-dev libavcodec-dev libavutil-dev
  mandoc man-db doxygen parallel rsync jq
)
debian_packages=(dpkg-dev file lintian)
check_packages=(clang-tidy cppcheck valgrind gcovr abigail-tools)
m32_packages=(g++-multilib lib32z1-dev)
gnustep_packages=(gobjc++ libgnustep-base-dev)
darwin_packages=(clang lld-16 llvm libc++-dev libc++abi-dev python3)
command -v npm >/dev/null || darwin_packages+=(npm)

fail() {
  printf 'setup.sh: %s\n' "$1" >&2
  exit 2
}

packages=("${build_packages[@]}")
for argument in "$@"; do
  case $argument in
    --tests) packages+=("${test_packages[@]}" "${debian_packages[@]}") ;;
    --checks) packages+=("${check_packages[@]}") ;;
    --packages) packages+=("${debian_packages[@]}") ;;
    --m32) packages+=("${test_packages[@]}" "${debian_packages[@]}" "${m32_packages[@]}") ;;
    --gnustep) packages+=("${gnustep_packages[@]}") ;;
    --darwin) packages+=("${darwin_packages[@]}") ;;
    --help)
      print_help
      exit 0
      ;;
    *) fail "no such option: $argument (try --help)" ;;
  esac
done

# Sets `system` to the name and version of the distribution, such as "debian 12".
identify_system() {
  system="an unknown system"
  if [[ -r /etc/os-release ]]; then
    system=$(. /etc/os-release && printf '%s %s' "${ID:-unknown}" "${VERSION_ID:-without a version}")
  fi
}

# is_installed NAME[:ARCHITECTURE]: a name alone means this machine's own architecture.
is_installed() {
  local wanted="$own_architecture|all"
  [[ $1 != *:* ]] || wanted=${1#*:}
  dpkg-query -W -f '${Architecture} ${db:Status-Status}\n' "$1" 2>/dev/null | grep -qE "^($wanted) installed$"
}

# Prints each of the arguments that is not installed.
missing_packages() {
  local package
  for package in "$@"; do
    is_installed "$package" || printf '%s\n' "$package"
  done
}

identify_system
if [[ $system != "debian 12" ]] || ! command -v dpkg-query >/dev/null; then
  fail "this script knows Debian 12 only, and this is $system. Install these by hand: ${packages[*]}"
fi

own_architecture=$(dpkg --print-architecture)
mapfile -t missing < <(missing_packages "${packages[@]}")
if [[ ${#missing[@]} -eq 0 ]]; then
  exit 0
fi

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null ||
    fail "not root, and sudo is not there. As root, run: apt-get install --no-install-recommends ${missing[*]}"
  as_root=(sudo)
fi

apt_get() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
    apt-get -q -y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 "$@" </dev/null
}

printf 'setup.sh: installing %s\n' "${missing[*]}" >&2
apt_get update >&2 || fail "apt-get update failed; see above"
apt_get install --no-install-recommends "${missing[@]}" >&2 || fail "apt-get install failed; see above"

mapfile -t missing < <(missing_packages "${packages[@]}")
[[ ${#missing[@]} -eq 0 ]] || fail "still missing after the installation: ${missing[*]}"
