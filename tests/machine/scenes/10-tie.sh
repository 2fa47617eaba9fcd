# machine: core2
# Two CPU nodes are equally near: neither is called local, and a search decides.

run -I
expect 'numa_id  : 2
is_online: 1
local_id : -1'
run -Y -M 2 -m 64m -i 1
expect_status 0
expect '===== Find Local CPU node ====='
expect_results 1
