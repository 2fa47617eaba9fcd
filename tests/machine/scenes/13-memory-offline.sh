# machine: gap
# A node whose memory is offline is still a node, but nothing can be measured there.

for block in /sys/devices/system/node/node3/memory*/state; do
  echo offline >"$block"
done
run -Y -M 3 -C 1 -m 64m -i 1
expect_status 1
expect 'cpu-numa_id: 1'
expect 'Failed to allocate memory on 3 node'
