# machine: default
# -T loads the expander from the CPUs of the node nearest to it, -C binds the load to a CPU node
# that is not the memory's own; both out of pages that lie where they were asked for.

# load OPTIONS CPU-NODE MAIN-CPU LOAD-CPU MEMORY-NODE
load() {
  start $1 -M "$5" -m 8m -i 1
  wait_for 'Read Ratio'
  sleep 2
  # One load thread with two regions of 8 MiB.
  equal "Pages bound to node $5" "$(bound_pages "$5")" "N$5:4096 "
  equal 'CPUs of the threads' "$(thread_cpus)" "$3 $4 "
  finish
  expect_status 0
  expect "cpu-numa_id: $2
BW threads cpu_id: $4
main thread cpu_id: $3
mem-numa_id: $5"
  expect '#1: '
  expect_not '#2: '
  expect 'Avg. BW: '
  expect_not 'Avg. BW: 0.00'
}

load -T 1 2 3 2
load '-B -C 0' 0 0 1 1
