# machine: default
# -T loads the expander from the CPUs of the node nearest to it, out of pages that lie there.

start -T -M 2 -m 8m -i 1
wait_for 'Read Ratio'
sleep 2
# One load thread with two regions of 8 MiB.
equal 'Pages bound to node 2' "$(bound_pages 2)" 'N2:4096 '
equal 'CPUs of the threads' "$(thread_cpus)" '2 3 '
finish
expect_status 0
expect 'cpu-numa_id: 1
BW threads cpu_id: 3
main thread cpu_id: 2
mem-numa_id: 2'
expect 'the number of BW threads: 1'
expect '#1: '
expect_not '#2: '
expect 'Avg. BW: '
expect_not 'Avg. BW: 0.00'
