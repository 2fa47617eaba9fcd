# machine: default
# The report names the ranges and nodes that the machine was built with.

run -I
expect_status 0
expect 'Proximity Domain: 1
Logical Node    : 1
Base Address    : 40000000
Address Length  : 40000000'
expect 'Proximity Domain: 2
Logical Node    : 2
Base Address    : 100000000
Address Length  : 40000000'
# An NVDIMM.
expect 'Proximity Domain: 0
Logical Node    : 0
Base Address    : 140000000
Address Length  : 20000000'
# Node 0 begins at address 0; the part of it below 640 KiB is not told.
expect_not 'Base Address    : 0'
expect 'numa_id  : 0
is_online: 1
local_id : 0
has_cpu  : 1
cpu list : 0-1'
expect 'numa_id  : 1
is_online: 1
local_id : 1
has_cpu  : 1
cpu list : 2-3'
expect 'numa_id  : 2
is_online: 1
local_id : 1
has_cpu  : 0
cpu list : '
expect_not 'numa_id  : 3'
