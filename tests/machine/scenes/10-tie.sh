# machine: tie
# Two CPU nodes are equally near: neither is called local, and a search decides.

run -I
expect 'numa_id  : 2
is_online: 1
local_id : -1'
for cpu in 1 2; do stand_in_msr "$cpu" 0x1A4 0x8; done
start -Y -M 2 -m 64m -i 1
wait_for 'Start Burst Latency (Sequential)'
cpu=$(sed -n 's/^cpu_id     : //p' "$console")
equal 'The register during the run' "$(msr "$cpu" 0x1A4)" 0x2f
finish
expect_status 0
expect '===== Find Local CPU node ====='
expect_results 1
equal 'The register after the run' "$(msr "$cpu" 0x1A4)" 0x8
