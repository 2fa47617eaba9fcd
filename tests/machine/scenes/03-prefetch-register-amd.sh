# machine: default
# The prefetchers of an AMD are off while it measures and as they were afterwards.

stand_in_msr 2 0xC0000108 0x10
start -Y -M 2 -m 64m -i 1
wait_for 'Start Burst Latency (Sequential)'
equal 'The register during the run' "$(msr 2 0xC0000108)" 0x2f
finish
expect_status 0
expect_not 'Failed'
expect_results 1
equal 'The register after the run' "$(msr 2 0xC0000108)" 0x10
