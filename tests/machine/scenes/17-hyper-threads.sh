# machine: threads
# Two hyper-threads a core: the sibling of the CPU that measures latency carries no load, unless it is
# named or nothing else is left; it does not hide that CPU itself from the check of -l.

run -Z -M 1 -k 3 -l 2-4
expect_status 1
expect "lat_cpu and load_cpu can't use same cpu_id. lat_cpu: 3, load_cpu: 3"
expect_not 'same physical core'

# chosen OPTIONS LATENCY-CPU MAIN-CPU LOAD-CPUS
chosen() {
  start $1 -D 50 -m 8m
  wait_for 'Read Ratio'
  kill -INT "$pid"
  finish
  expect "latency thread cpu_id : $2"
  expect "BW threads cpu_id: $4
main thread cpu_id: $3"
}

chosen '-Z -M 1 -k 3 -l 2,4' 3 2 4
expect 'lat_cpu and load_cpu use same physical core.'
chosen '-Z -M 1' 4 0 1-3,6-7
chosen '-Z -M 1 -C 0' 2 0 1
