# machine: default
# One point of -Z: latency from the nearest CPU node, load from all other CPUs, all out of the
# expander's pages.

start -Z -M 2 -D 50 -m 8m -i 1
wait_for 'Read Ratio'
# The latency buffer, and two load threads with two regions of 8 MiB each.
mib=$(sed -n 's/^memory size (for latency)  : \([0-9]*\)\.00 MiB/\1/p' "$console")
equal 'Pages bound to node 2' "$(bound_pages 2)" "N2:$(((mib + 32) * 256)) "
finish
expect_status 0
expect 'latency thread cpu-numa_id: 1
latency thread cpu_id : 2
BW threads cpu-numa_id: 0-1
BW threads cpu_id: 1,3
main thread cpu_id: 0
mem-numa_id: 2'
expect_not 'Failed'
expect 'Final Results
Delay: 50
'
expect '(100.00 %)'
expect_not 'Bandwidth: 0.00'
check 'the log file is missing' test -s mem0_loaded-lat_result_1r_*.txt
