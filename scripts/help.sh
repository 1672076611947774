# Sourced by the other scripts, with their arguments: prints the comment at the top of the script and ends, where its first
# argument is --help.
script=$(realpath "$0")

print_help() {
  sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "$script"
}

if [[ ${1:-} == --help ]]; then
  print_help
  exit 0
fi
