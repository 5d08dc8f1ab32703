# Shared by run, test and the scripts of the system tests. Source it; it needs $top, the project's root.

say() { printf '\033[1m== %s\033[0m\n' "$*"; }
die() { printf 'ERROR: %s\n' "$*" >&2; exit 1; }

# build PRESET TARGET...: configures once and builds with progress.
build() {
  local preset=$1; shift
  [ -e "$top/build/$preset/build.ninja" ] || cmake --preset "$preset" -S "$top" >"$top/build-$preset.log" 2>&1 || { cat "$top/build-$preset.log"; die "configuring failed"; }
  rm -f "$top/build-$preset.log"
  NINJA_STATUS="[%f/%t %es] " ninja -C "$top/build/$preset" "$@"
}

# settle_disk: until what was built is on the disk, so that no program under test waits for it when it writes its own.
settle_disk() {
  local begin
  begin=$(date +%s)
  sync
  echo "The disk took $(( $(date +%s) - begin )) s to take what was built."
}

# wait_for SECONDS COMMAND...: polls until the command succeeds.
wait_for() {
  local deadline=$(( $(date +%s) + $1 )); shift
  until "$@" >/dev/null 2>&1; do
    [ "$(date +%s)" -lt "$deadline" ] || return 1
    sleep 0.1
  done
}

# Background programs are ended in reverse order when the script ends.
started=()
start() {
  local log=$1; shift
  "$@" >"$log" 2>&1 &
  last=$!
  started+=("$last")
}
stop_all() {
  local i
  for (( i = ${#started[@]} - 1; i >= 0; i-- )); do
    kill "${started[i]}" 2>/dev/null && wait "${started[i]}" 2>/dev/null
  done
  started=()
}
