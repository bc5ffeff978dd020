#!/usr/bin/env bash
# Runs a Windows program through wine, in a prefix of the build tree.
#
#   wine-run.sh PROGRAM [ARGUMENT ...]   run it; becomes the program's process
#   wine-run.sh --start                  prepare the prefix, keep it warm
#   wine-run.sh --stop                   end everything that runs in the prefix
#
# PROGRAM is a path of this system, with or without ".exe". Libraries are also
# found in the folder bin/ beside the program's own. RUVO_WINEPREFIX names
# another prefix than build/windows/wine.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
prefix=${RUVO_WINEPREFIX:-$(dirname "$here")/build/windows/wine}

export WINEPREFIX=$prefix WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree=d;mshtml=d"
unset DISPLAY WAYLAND_DISPLAY
# The "wine" of the distribution first looks for a 32-bit one and complains.
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine=wine
server=/usr/lib/wine/wineserver64
[ -x "$server" ] || server=wineserver

# Changes when prepare() does: a prefix of before is made anew.
made_by=2
is_ready() { [ "$(cat "$prefix/ready" 2>/dev/null)" = "$made_by" ]; }

# Complete once it is marked as ready.
prepare() {
  is_ready && return
  mkdir -p "$(dirname "$prefix")"
  exec 9>"$prefix.lock"
  flock 9
  if ! is_ready; then
    rm -rf "$prefix"
    {
      "$wine" wineboot --init
      "$wine" winecfg -v win10
      # Else a program could not be given a folder of its own (WINETEMP=FOLDER).
      "$wine" reg delete 'HKCU\Environment' /v TEMP /f
      "$wine" reg delete 'HKLM\System\CurrentControlSet\Control\Session Manager\Environment' \
        /v TEMP /f
      # A crash ends the program at once instead of starting a debugger.
      "$wine" reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' \
        /v Debugger /t REG_SZ /d '' /f
    } >"$prefix.log" 2>&1 </dev/null 9>&- ||
      { cat "$prefix.log" >&2; echo "wine-run: no prefix could be made" >&2; exit 1; }
    echo "$made_by" >"$prefix/ready"
  fi
  exec 9>&-
}

case ${1:-} in
  --start)
    prepare
    # A program that waits for ever: while one runs, the next starts in
    # hundredths of a second instead of seconds.
    fifo=$prefix/keeper
    [ -p "$fifo" ] || mkfifo "$fifo"
    setsid "$wine" cmd <>"$fifo" >/dev/null 2>&1 &
    # Returns when wine's own services are up: they belong to nobody's test.
    "$wine" cmd /c ver >/dev/null 2>&1 </dev/null
    ;;
  --stop)
    [ -d "$prefix" ] && "$server" -k || true
    ;;
  ''|--help)
    sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
    [ -n "${1:-}" ] || exit 2
    ;;
  *)
    prepare
    program=$1
    shift
    [ -e "$program" ] || [ ! -e "$program.exe" ] || program=$program.exe
    folder=$(cd "$(dirname "$program")" && pwd)
    beside="Z:${folder%/*}/bin"
    export WINEPATH="${beside//\//\\}"
    exec "$wine" "$folder/$(basename "$program")" "$@"
    ;;
esac
