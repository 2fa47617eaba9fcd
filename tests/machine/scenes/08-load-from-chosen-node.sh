# machine: default
# -C binds the load to a CPU node that is not the memory's own.

start -B -M 1 -C 0 -m 8m -i 1
wait_for 'Read Ratio'
sleep 2
equal 'Pages bound to node 1' "$(bound_pages 1)" 'N1:4096 '
equal 'CPUs of the threads' "$(thread_cpus)" '0 1 '
finish
expect_status 0
expect 'cpu-numa_id: 0
BW threads cpu_id: 1
main thread cpu_id: 0
mem-numa_id: 1'
expect 'Avg. BW: '
expect_not 'Avg. BW: 0.00'
