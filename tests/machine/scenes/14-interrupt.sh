# machine: core2
# Ctrl-C in the middle of a measurement gives the register its old value back.

old=$(msr 2 0x1A0)
start -Y -M 2 -m 64m
wait_for 'Start Burst Latency (Sequential)'
check 'the register was not changed' test "$(msr 2 0x1A0)" != "$old"
kill -INT "$pid"
finish
expect_status 0
expect_not '***** DONE *****'
expect_results 0
equal 'The register afterwards' "$(msr 2 0x1A0)" "$old"
