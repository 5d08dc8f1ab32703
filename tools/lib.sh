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

# A desktop of our own: X server, window manager, compositor, tray, sound server with a sink for each of two people.
start_desktop() {
  local work=$1
  mkdir -p "$work/xdg" "$work/home"
  chmod 700 "$work/xdg"
  export XDG_RUNTIME_DIR="$work/xdg" HOME="$work/home"
  local fd
  exec {fd}<> <(:)
  Xvfb -displayfd "$fd" -screen 0 1280x800x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
  started+=($!)
  local number
  read -r -t 20 number <&"$fd" || die "the X server did not start: $(cat "$work/xvfb.log")"
  export DISPLAY=":$number"
  start "$work/bus.log" dbus-daemon --session --nofork --address="unix:path=$work/xdg/bus"
  export DBUS_SESSION_BUS_ADDRESS="unix:path=$work/xdg/bus"
  start "$work/openbox.log" openbox
  start "$work/picom.log" picom --backend xrender --shadow-radius=0 --config /dev/null
  start "$work/trayer.log" trayer --edge bottom --align right --widthtype request --height 24
  xsetroot -solid '#2a3442'
}
start_sound() {
  local work=$1
  start "$work/pulse.log" pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no -L module-native-protocol-unix \
    -L "module-null-sink sink_name=ann rate=48000" -L "module-null-sink sink_name=ben rate=48000"
  wait_for 20 pactl info || die "the sound server did not start: $(cat "$work/pulse.log")"
  # An idle sink asks for data only after seconds; silence keeps it awake.
  local sink
  for sink in ann ben; do
    start "$work/keeper-$sink.log" pacat --latency-msec=20 -d "$sink" /dev/zero
  done
}
