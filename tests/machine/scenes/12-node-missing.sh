# machine: gap
# With a gap in the numbers of the nodes the last one has no local node: it is searched.

run -I
expect_status 0
expect 'numa_id  : 2
is_online: 0
local_id : -1
has_cpu  : 0
cpu list : '
expect 'numa_id  : 3
is_online: 1
local_id : -1
has_cpu  : 0
cpu list : '
run -Y -M 2
expect_status 1
expect 'Invalid memnode. Check if memory node is online.'
run -Y -M 4
expect_status 1
expect 'Invalid memnode.
'
run -Y -C 2
expect_status 1
expect 'Invalid cpunode: 2'

run -A -Y -m 64m -i 1
expect_status 0
expect '===== Find Local CPU node ====='
expect 'mem-numa_id: 3'
expect_not 'Memory #1'
expect_results 1

# A node whose memory is offline is still a node, but nothing can be measured there.
for block in /sys/devices/system/node/node3/memory*/state; do
  echo offline >"$block"
done
run -Y -M 3 -C 1 -m 64m -i 1
expect_status 1
expect 'cpu-numa_id: 1'
expect 'Failed to allocate memory on 3 node'
