# machine: core2
# On a Core 2 four bits are set in a register that keeps its others, through the real driver, and
# taken back at the end and by Ctrl-C in the middle of a measurement.

old=$(msr 2)
for end in finished interrupted; do
  start -Y -M 2 -C 1 -m 64m -i 1
  wait_for 'Start Burst Latency (Sequential)'
  equal 'The register during the run' "$(msr 2)" "$(printf '0x%x' $((old | 0xA000080200)))"
  [ "$end" = finished ] || kill -INT "$pid"
  finish
  expect_status 0
  expect_not 'Failed'
  if [ "$end" = finished ]; then expect_results 1; else expect_not DONE; fi
  equal "The register of a run that is $end" "$(msr 2)" "$old"
done
