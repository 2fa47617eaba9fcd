# machine: default
# -A measures the one node without CPUs, from the CPU node nearest to it, with the prefetchers
# switched off through the real driver.

run -A -Y -m 64m -i 1
expect_status 0
expect 'Memory #0 Result
cpu-numa_id: 1
mem-numa_id: 2
cpu_id     : 2
memory size: 64.00 MiB'
expect_not 'Memory #1'
expect_not 'Failed'
expect 'Start Burst Latency (Sequential)'
expect_results 1
expect '***** DONE *****'
check 'the log file is missing' test -s mem0_seq_burst-lat_*.txt
check 'the driver has seen no write' sh -c 'dmesg | grep -q "MSR 0xc0000108 by velmo"'

# Memory without a node comes from the node of the CPU that measures.
start -Y -k 3 -m 64m
wait_for 'Start Burst Latency'
# Other pages may have joined the mapping.
most=$(pages default 16384 | tr ' ' '\n' | sort -t : -k 2 -n | tail -n 1)
kill -INT "$pid"
finish
equal 'Node of most pages' "${most%%:*}" N1
