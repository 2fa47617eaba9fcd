# machine: default
# A DAX device has no node: the CPU node is searched by measuring. The device is smaller than the
# buffer that a search takes by itself.

make_dax_device
start -Y -f /dev/dax0.0 -m 64m -i 1
wait_for 'Start Burst Latency'
check 'the buffer is not on the device' grep -q /dev/dax0.0 "/proc/$pid/maps"
finish
expect_status 0
expect '===== Find Local CPU node ====='
expect 'mem_path: /dev/dax0.0'
expect 'memory size: 64.00 MiB'
expect_results 1
