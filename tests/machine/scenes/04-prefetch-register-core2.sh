# machine: core2
# On a Core 2 four bits are set in a register that keeps its others, through the real driver.

old=$(msr 2 0x1A0)
start -Y -M 2 -m 64m -i 1
wait_for 'Start Burst Latency (Sequential)'
equal 'The register during the run' "$(msr 2 0x1A0)" "$(printf '0x%x' $((old | 0xA000080200)))"
finish
expect_status 0
expect_not 'Failed'
expect_results 1
equal 'The register after the run' "$(msr 2 0x1A0)" "$old"
