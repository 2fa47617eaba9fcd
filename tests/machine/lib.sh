# The words that scenes are written in. A scene starts in an empty directory with the machine as it
# was built; what it mounts, switches off or leaves running is put right after it. Each
# expectation that is not met is told and counted, and the scene goes on.

failures=0
# What the last run has written to standard output and standard error.
console=/tmp/console
# Who runs velmo.
user=root
# A run that takes longer is killed, in seconds.
run_limit=240

fail() {
  failures=$((failures + 1))
  printf 'FAILED: %s\n' "$*"
}

# send FILE: to build/machines on the host.
send() {
  echo "@@ file $1"
  gzip -c "$1" | base64
  echo '@@ end'
}

# run ARGUMENT ...: runs velmo to its end; its status is in $status.
run() {
  start "$@"
  finish
}

# start ARGUMENT ...: starts velmo; its process is $pid.
start() {
  printf '\n%s$ velmo %s\n' "$user" "$*"
  rm -f /tmp/pipe
  mkfifo /tmp/pipe
  : >"$console"
  tee "$console" </tmp/pipe &
  printer=$!
  if [ "$user" = root ]; then
    timeout -s KILL "$run_limit" velmo "$@" >/tmp/pipe 2>&1 &
  else
    timeout -s KILL "$run_limit" su "$user" -c "exec velmo $*" >/tmp/pipe 2>&1 &
  fi
  pid=$!
}

finish() {
  wait "$pid"
  status=$?
  wait "$printer"
}

# wait_for TEXT: waits until the run that was started has written TEXT.
wait_for() {
  until grep -qF -- "$1" "$console"; do
    if ! kill -0 "$pid" 2>/dev/null; then
      fail "velmo ended before it wrote '$1'"
      return 1
    fi
    usleep 100000
  done
}

expect_status() {
  [ "$status" -eq "$1" ] || fail "status $1 was expected, not $status"
}

# expect TEXT: the run has written TEXT, which may be several lines.
expect() {
  case $(cat "$console") in
    *"$1"*) ;;
    *) fail "expected on the console: $1" ;;
  esac
}

expect_not() {
  case $(cat "$console") in
    *"$1"*) fail "not expected on the console: $1" ;;
  esac
}

# expect_results COUNT: so many measured latencies, each with all its figures. The average of a
# delayed measurement can be below 0 here, where a delay lasts longer than the delayed load.
expect_results() {
  local figure
  for figure in 'Sample: [1-9]' 'Avg\.  : -*[0-9]' 'Median: [0-9]' '99th  : [0-9]' '99\.9th: [0-9]'; do
    equal "Lines $figure" "$(grep -c "^$figure" "$console")" "$1"
  done
}

# check WHAT COMMAND ...: the command succeeds.
check() {
  local what=$1
  shift
  "$@" || fail "$what"
}

# equal WHAT VALUE EXPECTED
equal() {
  [ "$2" = "$3" ] || fail "$1: $3 was expected, not $2"
}

# msr CPU: value of the register of a Core 2 that holds the prefetchers' switches, in hexadecimal.
# The driver gives 8 bytes at a time; an address is a byte offset.
msr() {
  dd if="/dev/cpu/$1/msr" bs=8 skip=$((0x1A0 / 8)) count=1 2>/dev/null |
    od -An -t x8 | sed 's/^ *0*/0x/'
}

# bound_pages NODE: where the pages of the memory that is bound to the node lie, as in "N2:4096 ".
bound_pages() { pages "bind:$1" 0; }

# pages POLICY LEAST: those of mappings of that policy, each of LEAST pages or more.
pages() {
  awk -v policy="$1" -v least="$2" '
    $2 == policy && match($0, / anon=[0-9]+/) && substr($0, RSTART + 6) + 0 >= least {
      for (i = 3; i <= NF; ++i)
        if ($i ~ /^N[0-9]+=/ && split($i, part, "=")) count[part[1]] += part[2]
    }
    END { for (node in count) printf "%s:%d ", node, count[node] }' "/proc/$pid/numa_maps"
}

# thread_cpus: the CPUs that the threads of the run are pinned to, as in "2 3 ".
thread_cpus() {
  sed -n 's/^Cpus_allowed_list:[[:space:]]*//p' /proc/"$pid"/task/*/status | sort -nu | tr '\n' ' '
}

# make_dax_device ALIGNMENT: /dev/dax0.0 on the first NVDIMM.
make_dax_device() {
  ndctl create-namespace -f -e namespace0.0 -m devdax -a "$1" >/dev/null || fail 'no DAX device'
}

# mount_dax: a DAX file system on the second NVDIMM, at /mnt.
mount_dax() {
  ndctl create-namespace -f -e namespace1.0 -m fsdax >/dev/null || fail 'no memory for DAX'
  # By its path, since the shell has an mke2fs of its own.
  /usr/sbin/mke2fs -q -t ext4 -b 4096 /dev/pmem1 || fail 'no file system'
  mount -t ext4 -o dax /dev/pmem1 /mnt || fail 'the file system cannot do DAX'
}
