# machine: default
# A survey knows every kind of memory: two CPU nodes, one without, a DAX device and a directory.
# Nothing is left behind on the file system, and what is asked of one node stays there.

make_dax_device 2m
mount_dax
before=$(ls -A /mnt)
run survey -o all.json --quick --repeats 1 --size 16m --only idle,bandwidth,loaded --seed 1 \
  --device /dev/dax0.0 --directory /mnt
expect_status 0
equal 'The directory' "$(ls -A /mnt)" "$before"

# counted TEXT: lines of the file that hold it.
counted() { grep -c -- "$1" all.json; }

# Idle: two nodes to three and to both of the others, three on large pages. Bandwidth: the other
# node, three mixes, one thread a memory, and the whole machine. A curve for each node.
kinds=$(sed -n 's/^ *"kind": "\(.*\)",/\1/p' all.json | sort | uniq -c | tr -s ' \n' ' ')
equal 'Cells' "$kinds" ' 16 bandwidth 13 idle_latency 3 loaded_latency '
equal 'Failed cells' "$(counted '"state": "failed"')" 0
equal 'Repeats with pages elsewhere' "$(grep '"share_on_node"' all.json | grep -vc ': 1.0')" 0
check 'no placement is told' [ "$(counted '"share_on_node": 1.0')" -ge 27 ]
send all.json
run show all.json
expect_status 0
expect 'node 2'

run survey --quiet -o one.json --quick --repeats 1 --size 16m --only idle --cpu-nodes 1 \
  --memory-nodes 2
expect_status 0
nodes=$(sed -n '/^ "cells"/,$s/.*"\(cpu_node\|node\)": \([0-9]*\).*/\1 \2/p' one.json | sort -u | tr '\n' ' ')
equal 'Nodes' "$nodes" 'cpu_node 1 node 2 '
run survey --memory-nodes 3
expect_status 1
expect '--memory-nodes: no node 3 has memory to be used. There is: 0-2'
