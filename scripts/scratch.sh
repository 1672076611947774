# Sourced by the scripts that make many files.
#
# use_scratch GIB: a folder of this run's own becomes TMPDIR and `scratch`, and is gone when the run ends, however it ends,
# as are the jobs in its background.
# It lies in memory, unless TMPDIR says something else: a disk would decide how long everything takes.
use_scratch() {
  [[ -n ${TMPDIR-} ]] || ! memory_has "$1" || export TMPDIR=/dev/shm
  scratch=$(mktemp -d)
  trap 'jobs -p | xargs -r kill 2>/dev/null || true; rm -rf "$scratch"' EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  chmod 711 "$scratch" # some tests step back from root
  export TMPDIR=$scratch
}

# Whether there is a file system in memory that has so many GIB free, and runs programs.
memory_has() {
  local enough=$(($1 * 1024 * 1024))
  [[ -w /dev/shm && $(awk '/^MemAvailable/ { print $2 }' /proc/meminfo) -gt $enough &&
    $(df --output=avail -k /dev/shm | tail -n 1) -gt $enough ]] &&
    ! grep -q ' /dev/shm [^ ]* [^ ]*noexec' /proc/mounts
}
