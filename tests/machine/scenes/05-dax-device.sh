# machine: default
# A DAX device has no node: the CPU node is searched by measuring. The device is smaller than the
# buffer that a search takes by itself, and maps multiples of its alignment alone.

make_dax_device 2m
run -Y -f /dev/dax0.0 -m 1m
expect_status 1
expect 'Memory size of 1048576 Byte is smaller than the alignment of /dev/dax0.0, 2097152 Byte.'
start -Y -f /dev/dax0.0 -m 65m -i 1
wait_for 'Start Burst Latency'
check 'the buffer is not on the device' grep -q /dev/dax0.0 "/proc/$pid/maps"
finish
expect_status 0
expect '===== Find Local CPU node ====='
expect 'mem_path: /dev/dax0.0'
expect 'Memory size of 68157440 Byte is rounded down to 67108864 Byte'
expect 'memory size: 64.00 MiB'
expect_results 1
