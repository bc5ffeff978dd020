#!/usr/bin/env bash
# Starts a daemon of its own on free ports, drives it with the real client while
# a watcher looks on, tells line by line what happens, and stops it.
#
#   client/demo.sh BIN_DIR     BIN_DIR holds ruvohost and ruvoctl
#
# Exit status 0 when everything happened as it should.
set -euo pipefail

patience=30  # seconds for anything that is waited for

if [ $# -ne 1 ] || [ ! -x "$1/ruvohost" ] || [ ! -x "$1/ruvoctl" ]; then
  sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}" >&2
  exit 2
fi
bin=$(cd "$1" && pwd)
work=$(mktemp -d)
daemon=
watcher=
contender=

fail() {
  echo "demo: FAILED: $*" >&2
  if [ -s "$work/ruvod.log" ]; then
    echo "demo: the end of the daemon's log:" >&2
    tail -n 20 "$work/ruvod.log" >&2
  fi
  exit 1
}

clean_up() {
  status=$?
  trap - EXIT
  for process in $contender $watcher $daemon; do
    if kill "$process" 2>/dev/null; then wait "$process" || true; fi
  done
  rm -rf "$work"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

# await FD PATTERN WHAT: reads lines from FD up to one that matches; it is then
# in $line.
await() {
  local end=$((SECONDS + patience))
  while [ $SECONDS -lt $end ]; do
    if ! IFS= read -r -t "$patience" line <&"$1"; then break; fi
    # shellcheck disable=SC2254 # a pattern is meant
    case $line in $2) return ;; esac
  done
  fail "$3"
}

# await_end FD WHAT: waits until nobody writes to FD any more.
await_end() {
  local end=$((SECONDS + patience)) status=0
  while [ $SECONDS -lt $end ]; do
    IFS= read -r -t "$patience" line <&"$1" || status=$?
    if [ $status -eq 1 ]; then return; fi
    if [ $status -ne 0 ]; then break; fi
  done
  fail "$2"
}

# show COMMAND...: shows a command of the client; it is then in $shown.
show() {
  local word
  shown=ruvoctl
  for word in "$@"; do
    case $word in
      *[!A-Za-z0-9._:^-]*) shown+=" '$word'" ;;
      *) shown+=" $word" ;;
    esac
  done
  echo "\$ $shown"
}

# run COMMAND...: shows a command of the client and what it prints. Its output is
# then in $output.
run() {
  show "$@"
  output=$("$bin/ruvoctl" "$@") || fail "$shown ended with status $?"
  if [ -n "$output" ]; then echo "  ${output//$'\n'/$'\n'  }"; fi
}

# seen PATTERN: the next thing that the watcher tells must match.
seen() {
  if ! IFS= read -r -t "$patience" line <&4; then fail "the watcher saw nothing of: $1"; fi
  # shellcheck disable=SC2254
  case $line in
    $1) echo "  the watcher sees: $line" ;;
    *) fail "the watcher saw \"$line\" and not: $1" ;;
  esac
}

same() {
  if [ "$1" != "$2" ]; then fail "$3 gave \"$1\" and not \"$2\""; fi
}

cat >"$work/demo.properties" <<END
ruvod.operating-directory=$work
logging.level=3
logging.target=2
ruvod.tcp-server.port=0
ruvod.udp-server.port=0
ruvod.load-monitors=SchedulerFollow
END

mkfifo "$work/daemon" "$work/watcher" "$work/contender"
TEMP=$work "$bin/ruvohost" run --properties "$work/demo.properties" >"$work/daemon" &
daemon=$!
exec 3<"$work/daemon"
await 3 'ruvohost: listening on tcp:*' "the daemon does not listen"
RUVO_PORT=${line##*:}
export RUVO_PORT
echo "The daemon listens on ${line##* }"
await 3 'ruvohost: listening on udp:*' "the daemon does not listen on UDP"
udp_port=${line##*:}
echo "The daemon listens on ${line##* }"
await 3 'ruvohost: ready' "the daemon does not get ready"

"$bin/ruvoctl" watch '^VornJSEvent:|^VornRAEvent:|^VornTSEvent:|^disk\.' >"$work/watcher" 2>&1 &
watcher=$!
exec 4<"$work/watcher"
await 4 'ruvoctl: watching*' "the watcher could not register"
echo "A watcher has registered for jobs, locks, tasks and disks"

run job create nightly-backup --description 'every night at two'
seen 'VornJSEvent:nightly-backup created *'
job=$output
run job progress nightly-backup 50
seen 'VornJSEvent:nightly-backup progress *'
run job get nightly-backup
same "$output" 50 "the job's progress"
run --udp --port "$udp_port" job lookup nightly-backup
same "$output" "$job" "the job's id over UDP"
run job map nightly-backup 11 12 13
run job cancel nightly-backup
seen 'VornJSEvent:nightly-backup cancelled *'
run job delete nightly-backup --json
seen 'VornJSEvent:nightly-backup completed *'
if "$bin/ruvoctl" job lookup nightly-backup 2>/dev/null; then fail "the job is still there"; fi
run notify disk.failed --message 'bay 3' --data 'smart status: failing'
seen 'disk.failed *message="bay 3"*smart status: failing*'
run task schedule hello --daily --at +2s --log "$work/hello.txt" -- echo 'hello, world'
seen 'VornTSEvent:* waiting *'
seen 'VornTSEvent:* running *'
seen 'VornTSEvent:* ended *'
seen 'VornTSEvent:* waiting *'
same "$(cat "$work/hello.txt")" 'hello, world' "the task's output"
echo "  the task has written: $(cat "$work/hello.txt")"
run task exit-code hello
same "$output" 0 "the task's exit code"
run task next hello
run task show hello
run task cancel hello
seen 'VornTSEvent:* finished *'
run task schedule seven --at +2s --shell -- 'exit 7'
seen 'VornTSEvent:* waiting *'
echo '$ ruvoctl task wait seven'
status=0
"$bin/ruvoctl" task wait seven --for "$patience" || status=$?
same $status 7 "the wait for a task"
echo "  ended with status $status"
seen 'VornTSEvent:* running *'
seen 'VornTSEvent:* ended *'
seen 'VornTSEvent:* finished *'

echo "Two clients want the same shelf. The first one gets it and keeps it:"
run lock store:shelf-3
held=$output
seen 'VornRAEvent:store:shelf-3 locked *'
echo "The second one does not get it, and then waits for it:"
contend=(lock store:shelf-3 -- echo 'the shelf is mine')
show lock store:shelf-3 --wait 0
status=0
"$bin/ruvoctl" lock store:shelf-3 --wait 0 2>"$work/refusal" || status=$?
same $status 75 "a lock that somebody else holds"
echo "  $(cat "$work/refusal") (status $status)"
show "${contend[@]}"
"$bin/ruvoctl" "${contend[@]}" >"$work/contender" 2>&1 &
contender=$!
exec 5<"$work/contender"
await 5 'ruvoctl: waiting for the lock*' "the second client does not wait"
echo "  $line"
echo "The first one gives it up, and the second one's command runs:"
run unlock "$held"
await 5 'the shelf is mine' "the second client did not get the lock"
echo "  the second client's command says: $line"
seen 'VornRAEvent:store:shelf-3 unlocked *'
seen 'VornRAEvent:store:shelf-3 locked *'
seen 'VornRAEvent:store:shelf-3 unlocked *'
status=0
wait "$contender" || status=$?
contender=
same $status 0 "the second client"
echo "The command has ended, and the shelf is free again."

run raw JobStatus RUVO_JS_LOOKUP s:nightly-backup --expect i
same "$output" -1 "a lookup of the deleted job"

run stop
await 4 '*the daemon has gone*' "the watcher did not notice the daemon's end"
echo "  the watcher sees: ${line#ruvoctl: }"
await_end 3 "the daemon did not stop"
status=0
wait "$daemon" || status=$?
daemon=
if [ $status -ne 0 ]; then fail "the daemon ended with status $status"; fi
wait "$watcher" || status=$?
watcher=
if [ $status -ne 3 ]; then fail "the watcher ended with status $status"; fi
echo "The daemon has stopped. Everything happened as it should."
