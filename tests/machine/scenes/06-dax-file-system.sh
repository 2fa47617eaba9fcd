# machine: default
# On a DAX file system the buffer is a file without a name: nothing is left behind.

mount_dax
before=$(ls -A /mnt)
start -X -g /mnt -m 64m -i 1 -d 100
wait_for 'Start Delayed Latency'
check 'the buffer is not a file there' grep -q ' /mnt/.* (deleted)' "/proc/$pid/maps"
finish
expect_status 0
expect '===== Find Local CPU node ====='
expect 'mem_path: /mnt'
expect_results 1
equal 'The directory' "$(ls -A /mnt)" "$before"
